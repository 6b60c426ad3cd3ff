// SPDX-License-Identifier: MIT
#include <setup/kit/DeclaredValues.h>
#include <setup/kit/ProductData.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

namespace KSETUP {

namespace {

constexpr const char* sectionName = "product";
constexpr std::size_t mostNameBytes = 200; // of a file's 255: logs and units have more behind it

/// Each of these says what a value has to be; empty for one that is.
KText WhyNoFileName(std::string_view value) {
    const bool isName = value.find('/') == std::string_view::npos && value != "." &&
                        value != ".." && !HasControlCharacter(value) &&
                        value.size() <= mostNameBytes;
    return isName ? "" : Text("it becomes the name of a file");
}

KText WhyNoServiceName(std::string_view value) {
    return IsServiceName(value)
               ? ""
               : Text("it becomes the name of a service and of a directory in /etc");
}

KText WhyNoVersion(std::string_view value) {
    return HasControlCharacter(value) ? Text("it is shown in messages") : "";
}

KText WhyNoNumber(std::string_view value) {
    std::uint32_t number = 0;
    const char* const end = value.data() + value.size();
    const auto read = std::from_chars(value.data(), end, number);
    return read.ec == std::errc() && read.ptr == end ? "" : Text("versions are ordered by it");
}

struct Key {
    const char* name;
    KText (*whyNot)(std::string_view value);
    const char* advice;
};

constexpr std::array keys = std::to_array<Key>({
    {"name", WhyNoFileName, TextFormat("write a name without \"/\", of 200 bytes at the most")},
    {"serviceName",
     WhyNoServiceName,
     TextFormat("write letters, digits, \"-\", \"_\", \".\" and \":\", with a letter or digit first"
     )},
    {"iniFile",
     WhyNoFileName,
     TextFormat("write a file's name without \"/\", of 200 bytes at the most")},
    {"version", WhyNoVersion, TextFormat("write it without control characters")},
    {"buildNumber", WhyNoNumber, TextFormat("write a whole number from 0 to 4294967295")},
});

std::vector<std::string> KeyNames() {
    std::vector<std::string> names;
    for (const Key& key : keys) {
        names.emplace_back(key.name);
    }
    return names;
}

/// Finds what is wrong with section [product], and appends it.
class Search {
  public:
    explicit Search(const KScript& productData) : data(productData) {}

    std::vector<KProductMistake> Find() {
        if (!data.HasSection(sectionName)) {
            TellNoSection();
            return found;
        }
        const std::vector<KScriptLine> lines = data.GetLines(sectionName);
        for (const KScriptLine& line : lines) {
            LookAtKey(line, lines);
        }
        for (const Key& key : keys) {
            LookAtValue(key, lines);
        }
        return found;
    }

  private:
    static bool Has(const std::vector<KScriptLine>& lines, const std::string& key) {
        return std::any_of(lines.begin(), lines.end(), [&](const KScriptLine& line) {
            return line.type == key;
        });
    }

    void TellNoSection() {
        for (const KScript::Header& header : data.GetHeaders()) {
            if (!FindMeant(header.name, {sectionName}).empty()) {
                Tell(
                    header.line,
                    "[" + header.name + "]",
                    Text("no section is called \"%s\"", header.name),
                    "write [product]"
                );
                return;
            }
        }
        Tell(
            1,
            "",
            Text("section [product] is missing"),
            Text("put a line [product] before the keys")
        );
    }

    /// A key that nothing reads may be the author's own, unless one like it is missing.
    void LookAtKey(const KScriptLine& line, const std::vector<KScriptLine>& lines) {
        std::vector<std::string> missing = KeyNames();
        if (std::find(missing.begin(), missing.end(), line.type) != missing.end()) {
            return;
        }
        std::erase_if(missing, [&](const std::string& key) { return Has(lines, key); });
        const std::string meant = FindMeant(line.type, missing);
        if (!meant.empty()) {
            misspelt.push_back(meant);
            Tell(
                line.number,
                line.type,
                Text("no key is called \"%s\"", line.type),
                Text("write \"%s\"", meant)
            );
        }
    }

    void LookAtValue(const Key& key, const std::vector<KScriptLine>& lines) {
        const auto line = std::find_if(lines.begin(), lines.end(), [&](const auto& one) {
            return one.type == key.name; // the first one counts
        });
        if (line != lines.end()) {
            const KText why = line->value.empty() ? "" : key.whyNot(line->value);
            if (line->value.empty() || !why.empty()) {
                TellValue(*line, why, key.advice);
            }
        } else if (std::find(misspelt.begin(), misspelt.end(), key.name) == misspelt.end()) {
            TellMissing(key.name);
        }
    }

    void TellValue(const KScriptLine& line, const KText& why, const KText& advice) {
        const std::string_view text = data.GetText(line.number);
        const std::size_t value = text.find_first_not_of(" \t", text.find('=') + 1);
        Tell(
            line.number,
            line.value,
            line.value.empty() ? Text("%s is empty", line.type)
                               : Text("invalid %s \"%s\": %s", line.type, line.value, why),
            line.value.empty() ? Text("write one") : advice
        );
        found.back().column =
            static_cast<unsigned>(value == std::string_view::npos ? text.size() : value) + 1;
    }

    void TellMissing(const std::string& key) {
        for (const KScript::Header& header : data.GetHeaders()) {
            if (header.name == sectionName) {
                Tell(
                    header.line,
                    "[product]",
                    Text("key \"%s\" is missing", key),
                    Text("add a line %s=… to this section", key)
                );
                return;
            }
        }
    }

    void Tell(unsigned line, std::string text, KText message, KText advice) {
        found.push_back({line, 1, std::move(text), std::move(message), std::move(advice)});
    }

    const KScript& data;
    std::vector<std::string> misspelt; // what they were to be
    std::vector<KProductMistake> found;
};

} // namespace

bool IsServiceNameByte(char byte) noexcept {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || byte == '-' || byte == '_' || byte == '.' || byte == ':';
}

bool IsServiceName(std::string_view name) noexcept {
    return !name.empty() && std::all_of(name.begin(), name.end(), IsServiceNameByte) &&
           name.front() != '-' && name.front() != '.' && name.size() <= mostNameBytes;
}

bool HasControlCharacter(std::string_view text) noexcept {
    return std::any_of(text.begin(), text.end(), [](char byte) {
        return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
    });
}

std::vector<KProductMistake> FindProductMistakes(const KScript& productData) {
    std::vector<KProductMistake> found = Search(productData).Find();
    for (KProductMistake& one : FindValueMistakes(productData)) {
        found.push_back(std::move(one));
    }
    std::stable_sort(found.begin(), found.end(), [](const auto& left, const auto& right) {
        return left.line < right.line;
    });
    return found;
}

} // namespace KSETUP
