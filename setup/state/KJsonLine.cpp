// SPDX-License-Identifier: MIT
#include <setup/state/KJsonLine.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace KSETUP {

namespace {

constexpr std::string_view hexEnding = "Hex";

std::string ToHex(const std::string& bytes) {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4U];
        text += digits[static_cast<unsigned char>(byte) & 0xFU];
    }
    return text;
}

std::string FromHex(const std::string& text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); at += 2) {
        unsigned value = 0;
        const char* const end = text.data() + at + 2;
        if (at + 2 > text.size() || std::from_chars(text.data() + at, end, value, 16).ptr != end) {
            throw std::invalid_argument("no hexadecimal digits");
        }
        bytes += static_cast<char>(value);
    }
    return bytes;
}

/// Whether JSON has it as it is, between quotes.
bool IsPlain(char byte) noexcept {
    return byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\';
}

/// Appends a text as JSON has it; false for one that is no UTF-8.
bool AppendQuoted(std::string& line, const std::string& text) {
    if (std::all_of(text.begin(), text.end(), IsPlain)) {
        line.append(1, '"').append(text).append(1, '"');
        return true;
    }
    try {
        line += nlohmann::json(text).dump();
        return true;
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}

/// Takes the texts and numbers of an object as they are read, which costs a fraction of making it.
class Reading : public nlohmann::json_sax<nlohmann::json> {
  public:
    using Value = std::variant<std::string, std::uint64_t>;

    bool start_object(std::size_t /*count*/) override {
        isObject = isObject || depth == 0;
        return Open();
    }
    bool start_array(std::size_t /*count*/) override { return Open(); }
    bool end_object() override { return Close(); }
    bool end_array() override { return Close(); }
    bool key(string_t& name) override {
        if (depth == 1) {
            last = std::move(name);
        }
        return true;
    }
    bool string(string_t& text) override { return Take(std::move(text)); }
    bool number_unsigned(number_unsigned_t number) override { return Take(std::uint64_t{number}); }
    bool number_integer(number_integer_t /*number*/) override { return Refuse(); }
    bool number_float(number_float_t /*number*/, const string_t& /*text*/) override {
        return Refuse();
    }
    bool boolean(bool /*value*/) override { return Refuse(); }
    bool null() override { return Refuse(); }
    bool binary(binary_t& /*bytes*/) override { return Refuse(); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception&) override {
        return false;
    }

    bool isObject = false;
    std::optional<std::string> refused; // the key of what is neither a text nor a number
    std::vector<std::pair<std::string, Value>> values;

  private:
    bool Open() {
        if (depth++ > 0) {
            Refuse();
        }
        return true;
    }
    bool Close() {
        --depth;
        return true;
    }
    bool Refuse() {
        if (!refused) {
            refused = last;
        }
        return true;
    }
    bool Take(Value value) {
        if (depth == 1) {
            values.emplace_back(last, std::move(value));
        }
        return true;
    }

    int depth = 0;
    std::string last; // key
};

/// Reads what is most of the thousands of lines: texts that are plain and numbers, without spaces
/// between. That takes a fraction of what the library needs, which reads all else.
class PlainReading {
  public:
    explicit PlainReading(std::string_view text) : rest(text) {}

    bool Skip(char byte) {
        if (rest.empty() || rest.front() != byte) {
            return false;
        }
        rest.remove_prefix(1);
        return true;
    }
    bool Take(std::string& text) {
        if (!Skip('"')) {
            return false;
        }
        const auto* const end = std::find_if_not(rest.begin(), rest.end(), IsPlain);
        text.assign(rest.begin(), end);
        rest.remove_prefix(text.size());
        return Skip('"');
    }
    bool Take(std::uint64_t& number) {
        const char* const begin = rest.data();
        const auto [end, failed] = std::from_chars(begin, begin + rest.size(), number);
        const auto length = static_cast<std::size_t>(end - begin);
        if (failed != std::errc() || (length > 1 && rest.front() == '0')) {
            return false;
        }
        rest.remove_prefix(length);
        return true;
    }
    bool IsText() const { return rest.starts_with('"'); }
    bool IsEmpty() const { return rest.empty(); }

  private:
    std::string_view rest;
};

} // namespace

bool KJsonLine::ReadPlain(std::string_view line) {
    PlainReading reading(line);
    if (!reading.Skip('{')) {
        return false;
    }
    do {
        std::string key;
        if (!reading.Take(key) || !reading.Skip(':')) {
            return false;
        }
        if (reading.IsText()) {
            std::string text;
            if (!reading.Take(text)) {
                return false;
            }
            Take(key, std::move(text));
        } else {
            std::uint64_t number = 0;
            if (!reading.Take(number)) {
                return false;
            }
            Take(key, number);
        }
    } while (reading.Skip(','));
    const bool isClosed = reading.Skip('}');
    reading.Skip('\n');
    return isClosed && reading.IsEmpty();
}

KJsonLine::KJsonLine(std::string_view line) {
    constexpr std::size_t usually = 8;
    values.reserve(usually);
    if (ReadPlain(line)) {
        return;
    }
    values.clear();
    Reading reading;
    if (!nlohmann::json::sax_parse(line, &reading) || !reading.isObject) {
        throw std::invalid_argument("no JSON object");
    }
    if (reading.refused) {
        throw std::invalid_argument("neither a text nor a number: " + *reading.refused);
    }
    for (auto& [key, value] : reading.values) {
        Take(key, std::move(value));
    }
}

void KJsonLine::Take(const std::string& key, Value value) {
    auto* const text = std::get_if<std::string>(&value);
    if (text != nullptr && key.ends_with(hexEnding)) {
        Set(key.substr(0, key.size() - hexEnding.size()), FromHex(*text));
    } else {
        Set(key, std::move(value));
    }
}

void KJsonLine::Set(const std::string& key, Value value) {
    const auto known = std::find_if(values.begin(), values.end(), [&](const auto& one) {
        return one.first == key;
    });
    if (known != values.end()) {
        known->second = std::move(value);
    } else {
        values.emplace_back(key, std::move(value));
    }
}

void KJsonLine::Put(const std::string& key, std::string_view text) {
    Set(key, std::string(text));
}

void KJsonLine::Put(const std::string& key, std::uint64_t number) {
    Set(key, number);
}

std::string KJsonLine::ToText() const {
    std::vector<const std::pair<std::string, Value>*> sorted;
    sorted.reserve(values.size());
    for (const auto& one : values) {
        sorted.push_back(&one);
    }
    std::sort(sorted.begin(), sorted.end(), [](const auto* left, const auto* right) {
        return left->first < right->first;
    });
    std::string line;
    for (const auto* one : sorted) {
        const auto& [key, value] = *one;
        line += line.empty() ? '{' : ',';
        const std::size_t begin = line.size();
        AppendQuoted(line, key);
        line += ':';
        if (const auto* number = std::get_if<std::uint64_t>(&value)) {
            line += std::to_string(*number);
        } else if (const auto& text = std::get<std::string>(value); !AppendQuoted(line, text)) {
            line.resize(begin);
            AppendQuoted(line, key + std::string(hexEnding));
            line.append(":\"").append(ToHex(text)).append(1, '"');
        }
    }
    return (line.empty() ? "{" : line) + "}\n";
}

const KJsonLine::Value* KJsonLine::Find(const std::string& key) const noexcept {
    const auto found = std::find_if(values.begin(), values.end(), [&](const auto& one) {
        return one.first == key;
    });
    return found != values.end() ? &found->second : nullptr;
}

bool KJsonLine::Has(const std::string& key) const {
    return Find(key) != nullptr;
}

const std::string& KJsonLine::GetText(const std::string& key) const {
    const Value* const value = Find(key);
    if (value == nullptr || !std::holds_alternative<std::string>(*value)) {
        throw std::invalid_argument("no text \"" + key + "\"");
    }
    return std::get<std::string>(*value);
}

std::uint64_t KJsonLine::GetNumber(const std::string& key) const {
    const Value* const value = Find(key);
    if (value == nullptr || !std::holds_alternative<std::uint64_t>(*value)) {
        throw std::invalid_argument("no number \"" + key + "\"");
    }
    return std::get<std::uint64_t>(*value);
}

} // namespace KSETUP
