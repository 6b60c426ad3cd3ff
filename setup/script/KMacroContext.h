// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/script/KScript.h>

#include <string>
#include <utility>
#include <vector>

namespace KSETUP {

/// The macros as a run for a product path would see them, without a run. The path map is the
/// process's own: a run that follows sets it anew.
///
/// Thread   one at a time
class KMacroContext {
  public:
    /// For the product data that is loaded (KSetupKit). Where the product is installed,
    /// "targetVerInfo" is set as a run does.
    KMacroContext();
    KMacroContext(const KMacroContext&) = delete;
    KMacroContext& operator=(const KMacroContext&) = delete;

    /// The directories below this product path.
    void SetProductPath(const std::string& productPath);
    std::string Expand(const std::string& text) const;
    /// Lifetime this object's
    MacroExpander GetExpander() const;

    /// Where the kit's script would install to: the installed product's path, or the script's
    /// default, expanded.
    std::string ProposePath(const KScript& script) const;

    /// Whether the engine knows a macro of that name, without dollars, though perhaps only at times.
    bool IsKnown(const std::string& name) const;
    /// The names of all macros that the engine can know, sorted.
    static std::vector<std::string> GetNames();

    /// Every macro that has a value, with it, sorted by name.
    std::vector<std::pair<std::string, std::string>> List() const;

  private:
    KINS::KInstaller installer; // never initialised: it only answers
    KINS::KInstallPathManager paths;
};

} // namespace KSETUP
