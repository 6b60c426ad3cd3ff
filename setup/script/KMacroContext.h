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
    /// For the product data that is loaded (KSetupKit). `installedVersion` is the value of
    /// "targetVerInfo"; empty where the product is not installed.
    explicit KMacroContext(const std::string& installedVersion);
    KMacroContext(const KMacroContext&) = delete;
    KMacroContext& operator=(const KMacroContext&) = delete;

    /// The directories below this product path.
    void SetProductPath(const std::string& productPath);
    std::string Expand(const std::string& text) const;
    /// Lifetime this object's
    MacroExpander GetExpander() const;

    /// Gives "targetVerInfo" its value, for all of the process: what the engine takes from the
    /// product's record, which others may write to, is not for commands.
    static void SetInstalledVersion(const std::string& version);

    /// Where the kit's script would install to for the first time: its default path, expanded.
    std::string ProposePath(const KScript& script) const;

    /// Makes further macros known, also while they have no value: those that the kit declares.
    void AddNames(std::vector<std::string> further);

    /// Whether the engine knows a macro of that name, without dollars, though perhaps only at times.
    bool IsKnown(const std::string& name) const;
    /// The names of all macros that the engine can know, sorted.
    static std::vector<std::string> GetNames();

    /// Every macro that has a value, with it: the engine's sorted by name, then those that were added.
    std::vector<std::pair<std::string, std::string>> List() const;

  private:
    KINS::KInstaller installer; // never initialised: it only answers
    KINS::KInstallPathManager paths;
    std::vector<std::string> added; // names of macros
};

} // namespace KSETUP
