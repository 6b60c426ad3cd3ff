// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace KSETUP {

/// A JSON object that is written, member by member, in the order in which people are to read it. Bytes
/// that are no UTF-8 become U+FFFD. A key is put once: nothing is replaced.
///
/// The JSON library stays out of the sources that only write: its headers take seconds to compile.
///
/// Thread   one at a time
///
///     KJsonObject object;
///     object.Put("schema", 1).Put("result", "done");
///     std::cout << object.ToText() << std::endl;
class KJsonObject {
  public:
    enum class Characters : std::uint8_t {
        Utf8,
        Ascii, ///< all others are escaped
    };

    /// `written` holds for its own keys and texts; an object that is put keeps its own.
    explicit KJsonObject(Characters written = Characters::Utf8) noexcept : characters(written) {}

    KJsonObject& Put(std::string_view key, std::string_view text);
    /// In English, whatever the language is.
    KJsonObject& Put(std::string_view key, const KText& text) { return Put(key, text.English()); }
    KJsonObject& Put(std::string_view key, const char* text) {
        return Put(key, std::string_view(text));
    }
    KJsonObject& Put(std::string_view key, const std::string& text) {
        return Put(key, std::string_view(text));
    }
    KJsonObject& Put(std::string_view key, const std::vector<KText>& texts);
    /// A number, or true and false.
    template <std::integral Value>
    KJsonObject& Put(std::string_view key, Value value) {
        if constexpr (std::same_as<Value, bool>) {
            return PutJson(key, value ? "true" : "false");
        } else {
            return PutJson(key, std::to_string(value));
        }
    }
    KJsonObject& Put(std::string_view key, const KJsonObject& object);
    KJsonObject& Put(std::string_view key, const std::vector<std::string>& texts);
    KJsonObject& Put(std::string_view key, const std::vector<KJsonObject>& objects);
    /// Puts all members of another object, behind those that are there.
    KJsonObject& PutAll(const KJsonObject& other);

    /// In one line, without its end.
    std::string ToText() const { return "{" + members + "}"; }

  private:
    KJsonObject& PutJson(std::string_view key, std::string_view json);
    std::string Quoted(std::string_view text) const;

    Characters characters;
    std::string members; // as JSON, with commas between them
};

} // namespace KSETUP
