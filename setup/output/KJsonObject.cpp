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
    return Json(text).dump(
        -1, ' ', characters == Characters::Ascii, Json::error_handler_t::replace
    );
}

} // namespace KSETUP
