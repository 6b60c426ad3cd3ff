// SPDX-License-Identifier: MIT
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

namespace KSETUP {

/// A text for people, in English and in the language of who reads it: terminals show the translation;
/// JSON, events, logs and journal have the English text, whatever the language is. What has no language,
/// as a path or a name, becomes one by itself and is the same in both.
///
/// As small as two pointers, and copied without its texts: a plan has several for each of many files,
/// and nearly all of them are empty.
class KText {
  public:
    KText() = default;
    KText(std::string same) // NOLINT(google-explicit-constructor): is what it holds
        : texts(same.empty() ? nullptr : std::make_shared<Texts>(same, same)) {}
    KText(const char* same) // NOLINT(google-explicit-constructor): is what it holds
        : KText(std::string(same)) {}
    KText(std::string_view same) // NOLINT(google-explicit-constructor): is what it holds
        : KText(std::string(same)) {}
    KText(std::integral auto number) // NOLINT(google-explicit-constructor): is what it holds
        : KText(std::to_string(number)) {}
    KText(std::string inEnglish, std::string inLanguage)
        : texts(std::make_shared<Texts>(std::move(inEnglish), std::move(inLanguage))) {}

    const std::string& English() const noexcept { return texts ? texts->english : none; }
    const std::string& Translated() const noexcept { return texts ? texts->translated : none; }
    bool empty() const noexcept { return English().empty(); } // as the texts themselves have it

    KText& operator+=(const KText& more);
    friend KText operator+(KText text, const KText& more) { return text += more; }
    /// Who compares does not look at the language.
    friend bool operator==(const KText& one, const KText& other) {
        return one.English() == other.English();
    }

    /// For people, so in their language; a log is given what it shall have by name.
    friend std::ostream& operator<<(std::ostream& out, const KText& text) {
        return out << text.Translated();
    }

  private:
    struct Texts {
        Texts(std::string inEnglish, std::string inLanguage)
            : english(std::move(inEnglish)),
              translated(std::move(inLanguage)) {}
        std::string english;
        std::string translated;
    };
    static const std::string none;

    std::shared_ptr<Texts> texts; // null for an empty one; changed only where nobody shares it
};

/// Makes the text of a format and what takes the places of its "%s" ("%2$s" in a translation that has
/// another order; "%%" is a percent sign). tools/texts collects the formats from calls of these functions.
KText FormatText(const char* format, std::initializer_list<KText> arguments);
/// The same, with a number as the first argument, by which a language chooses among its forms.
KText FormatCounted(
    std::uint64_t count, const char* one, const char* many, std::initializer_list<KText> arguments
);

/// As Text("%s is not installed.", name).
template <typename... Arguments>
KText Text(const char* format, const Arguments&... arguments) {
    return FormatText(format, {KText(arguments)...});
}

/// As Counted(files, "%s file copied", "%s files copied"): the first argument is the number.
template <typename... Arguments>
KText Counted(std::uint64_t count, const char* one, const char* many, const Arguments&... more) {
    return FormatCounted(count, one, many, {KText(count), KText(more)...});
}

/// A format that stands in a table, and is given to Text later.
constexpr const char* TextFormat(const char* format) noexcept {
    return format;
}

} // namespace KSETUP
