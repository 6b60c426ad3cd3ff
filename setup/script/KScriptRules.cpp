// SPDX-License-Identifier: MIT
#include <setup/script/KScriptRules.h>

#include <utility>

namespace KSETUP {

KScriptRules::KScriptRules(const KScript& readScript, MacroExpander expandMacros)
    : script(readScript),
      expand(std::move(expandMacros)) {}

const std::vector<KScriptRule>& KScriptRules::Of(const std::string& section) {
    const auto [read, isNew] = sections.try_emplace(section);
    if (isNew) {
        std::vector<KScriptLine> lines = script.GetLines(section);
        read->second.reserve(lines.size());
        for (KScriptLine& line : lines) {
            read->second.push_back(RuleOf(std::move(line), expand));
        }
    }
    return read->second;
}

} // namespace KSETUP
