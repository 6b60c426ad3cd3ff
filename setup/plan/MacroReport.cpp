// SPDX-License-Identifier: MIT
#include <setup/output/JsonText.h>
#include <setup/output/TextFormat.h>
#include <setup/plan/MacroReport.h>

#include <algorithm>

#include <nlohmann/json.hpp>

namespace KSETUP {

std::string MacrosToText(const KMacroList& macros) {
    std::size_t width = 0;
    for (const auto& [name, value] : macros) {
        width = std::max(width, name.size());
    }
    std::string text;
    for (const auto& [name, value] : macros) {
        text += "$" + name + "$";
        if (!value.empty()) { // no blanks at a line's end
            text += std::string(width - name.size() + 2, ' ') + Printable(value);
        }
        text += "\n";
    }
    return text;
}

std::string MacrosToJson(const KMacroList& macros) {
    Json object;
    object["schema"] = 1;
    object["command"] = "macros";
    object["result"] = "done";
    object["exitCode"] = 0;
    object["macros"] = Json::object();
    for (const auto& [name, value] : macros) {
        object["macros"][name] = value;
    }
    return OneLine(object);
}

} // namespace KSETUP
