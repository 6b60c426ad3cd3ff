// SPDX-License-Identifier: MIT
#pragma once

#include <setup/script/KScript.h>

#include <string>
#include <unordered_map>
#include <vector>

namespace KSETUP {

/// The lines of a script as rules, each read once, whoever asks and however often its section is
/// included. Borrows the script until the last section was asked for.
///
/// Thread   one at a time
///
///     auto rules = std::make_shared<KScriptRules>(script, expand);
///     const KScript::Unfolded install = script.Unfold("install", rules);
class KScriptRules {
  public:
    KScriptRules(const KScript& readScript, MacroExpander expandMacros);
    KScriptRules(const KScriptRules&) = delete;
    KScriptRules& operator=(const KScriptRules&) = delete;

    /// The lines of one section, without those that it includes.
    ///
    /// Lifetime this object's
    const std::vector<KScriptRule>& Of(const std::string& section);

    const MacroExpander& GetExpander() const noexcept { return expand; }

  private:
    const KScript& script;
    MacroExpander expand;
    std::unordered_map<std::string, std::vector<KScriptRule>> sections;
};

} // namespace KSETUP
