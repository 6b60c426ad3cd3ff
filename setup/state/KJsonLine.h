// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace KSETUP {

/// One line of the files that ins-setup remembers things in: a JSON object of texts and numbers.
///
/// A text may be any bytes, as a file's name may. One that is not UTF-8 stands in hexadecimal under
/// the key with "Hex" behind it: {"pathHex":"2f6f70742fff"}.
///
/// Threads  one at a time
class KJsonLine {
  public:
    KJsonLine() = default;
    /// Throws   std::invalid_argument when it is no such line
    explicit KJsonLine(std::string_view line);

    void Put(const std::string& key, std::string_view text);
    void Put(const std::string& key, std::uint64_t number);
    /// With a line feed at its end.
    std::string ToText() const;

    bool Has(const std::string& key) const;
    /// Both throw std::invalid_argument when it is not there or something else. A text is valid as
    /// long as the line, and until something is put into it.
    const std::string& GetText(const std::string& key) const;
    std::uint64_t GetNumber(const std::string& key) const;

  private:
    using Value = std::variant<std::string, std::uint64_t>;
    bool ReadPlain(std::string_view line);
    void Take(const std::string& key, Value value);
    void Set(const std::string& key, Value value);
    const Value* Find(const std::string& key) const noexcept;

    std::vector<std::pair<std::string, Value>> values; // few, and lines by the thousand
};

} // namespace KSETUP
