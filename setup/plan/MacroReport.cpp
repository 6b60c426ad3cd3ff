// SPDX-License-Identifier: MIT
#include <setup/output/KJsonObject.h>
#include <setup/output/TextFormat.h>
#include <setup/plan/MacroReport.h>

#include <algorithm>

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
    KJsonObject values;
    for (const auto& [name, value] : macros) {
        values.Put(name, value);
    }
    KJsonObject object;
    object.Put("schema", 1).Put("command", "macros").Put("result", "done").Put("exitCode", 0);
    return object.Put("macros", values).ToText();
}

} // namespace KSETUP
