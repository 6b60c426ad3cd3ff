// SPDX-License-Identifier: MIT
#include <sup++/DataRecords.h>
#include <sup++/KCustomMacro.h>
#include <sup++/PathMap.h>

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace KSUP {

KCustomMacro::KCustomMacro() : KBase("KCustomMacro", true) {}

KCustomMacro::~KCustomMacro() = default;

void KCustomMacro::AddCustomMacro(const KString& name, const KString& value) {
    macros[name.c_str()] = value.c_str();
}

KString KCustomMacro::ExpandMacros(const KString& text) const {
    const char* dollar = std::strchr(text.c_str(), '$');
    if (dollar == nullptr) {
        return text;
    }
    // Put together with room to spare, and copied to its size in the end: rules keep such texts by
    // the hundred thousand.
    constexpr std::size_t room = 256;
    std::string expanded;
    expanded.reserve(room);
    expanded.assign(text.c_str(), dollar);
    while (*dollar != '\0') {
        const char* end = strchrnul(dollar + 1, '$');
        const std::string_view name(dollar + 1, static_cast<std::size_t>(end - dollar - 1));
        if (*end != '\0' && AppendValue(name, expanded)) {
            dollar = strchrnul(end + 1, '$');
            expanded.append(end + 1, dollar);
        } else {
            expanded.append(dollar, end); // unknown: it stays, and its second dollar may begin one
            dollar = end;
        }
    }
    return {expanded.c_str()};
}

std::vector<KString> KCustomMacro::GetBuiltInNames() {
    std::vector<KString> names;
    PathMap::AppendNames(names);
    DataRecords::AppendNames(names);
    return names;
}

bool KCustomMacro::AppendValue(std::string_view name, std::string& target) const {
    if (const auto macro = macros.find(name); macro != macros.end()) {
        target += macro->second;
        return true;
    }
    return PathMap::AppendByMacro(name, target) || DataRecords::AppendByMacro(name, target);
}

} // namespace KSUP
