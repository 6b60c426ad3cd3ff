// SPDX-License-Identifier: MIT
#include <setup/output/KJsonObject.h>

#include <nlohmann/json.hpp>

namespace KSETUP {

namespace {

/// What `toJson` makes of each item, as an array.
template <class Item, class ToJson>
std::string ArrayOf(const std::vector<Item>& items, ToJson toJson) {
    std::string array = "[";
    for (const Item& item : items) {
        array += array.size() > 1 ? "," : "";
        array += toJson(item);
    }
    return array + "]";
}

/// JSON may hold these controls as they are, and a terminal would obey them: DEL, and those above
/// ASCII, which are C2 80 to C2 9F in UTF-8.
std::string WithoutControls(std::string json) {
    constexpr unsigned char deleteCharacter = 0x7F;
    static constexpr char digits[] = "0123456789abcdef";
    if (json.find_first_of("\x7F\xC2") == std::string::npos) {
        return json;
    }
    std::string escaped;
    for (std::size_t at = 0; at < json.size(); ++at) {
        auto byte = static_cast<unsigned char>(json[at]);
        const bool isPair = byte == 0xC2 && static_cast<unsigned char>(json[at + 1]) < 0xA0;
        if (!isPair && byte != deleteCharacter) {
            escaped += json[at];
            continue;
        }
        byte = isPair ? static_cast<unsigned char>(json[++at]) : byte;
        escaped += "\\u00";
        escaped += digits[byte / 16];
        escaped += digits[byte % 16];
    }
    return escaped;
}

} // namespace

KJsonObject& KJsonObject::Put(std::string_view key, std::string_view text) {
    return PutJson(key, Quoted(text));
}

KJsonObject& KJsonObject::Put(std::string_view key, const KJsonObject& object) {
    return PutJson(key, object.ToText());
}

KJsonObject& KJsonObject::Put(std::string_view key, const std::vector<std::string>& texts) {
    return PutJson(key, ArrayOf(texts, [this](const std::string& text) { return Quoted(text); }));
}

KJsonObject& KJsonObject::Put(std::string_view key, const std::vector<KText>& texts) {
    return PutJson(key, ArrayOf(texts, [this](const KText& text) {
                       return Quoted(text.English());
                   }));
}

KJsonObject& KJsonObject::Put(std::string_view key, const std::vector<KJsonObject>& objects) {
    return PutJson(key, ArrayOf(objects, [](const KJsonObject& one) { return one.ToText(); }));
}

KJsonObject& KJsonObject::PutAll(const KJsonObject& other) {
    members += !members.empty() && !other.members.empty() ? "," : "";
    members += other.members;
    return *this;
}

KJsonObject& KJsonObject::PutJson(std::string_view key, std::string_view json) {
    members += members.empty() ? "" : ",";
    members += Quoted(key);
    members += ':';
    members += json;
    return *this;
}

std::string KJsonObject::Quoted(std::string_view text) const {
    using Json = nlohmann::json;
    return WithoutControls(
        Json(text).dump(-1, ' ', characters == Characters::Ascii, Json::error_handler_t::replace)
    );
}

} // namespace KSETUP
