// SPDX-License-Identifier: MIT
#pragma once

#include <ins/Names.h>
#include <setup/check/KFinding.h>
#include <setup/check/KPlanSteps.h>
#include <setup/files/KRealDirectories.h>
#include <setup/kit/KSetupKit.h>
#include <setup/plan/KPlan.h>
#include <setup/plan/KPlannedTree.h>
#include <setup/script/KMacroContext.h>
#include <setup/script/KScript.h>
#include <setup/script/KScriptRules.h>
#include <setup/state/KInstalledRecord.h>
#include <setup/text/KText.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace KSETUP {

/// What the checks look at: a kit's script, and what an install and then a removal would do on an
/// empty machine.
///
/// Thread   one at a time
class KCheckContext {
  public:
    /// For an install to `givenPath`; empty means where the script proposes. The kit's files are
    /// those that the view shows.
    ///
    /// Throws   KSetupFailure when the kit cannot be read
    KCheckContext(
        const KSetupKit& setupKit,
        const std::string& givenPath,
        const std::shared_ptr<KDiskView>& view
    );
    KCheckContext(const KCheckContext&) = delete;
    KCheckContext& operator=(const KCheckContext&) = delete;

    const std::vector<KDeclaredValue>& GetValues() const noexcept { return kit.GetValues(); }
    const std::string& GetKitDirectory() const noexcept { return kit.GetDirectory(); }
    const std::string& GetProductPath() const noexcept { return productPath; }
    bool IsProductPathGiven() const noexcept { return productPathIsGiven; }
    const KScript& GetScript() const noexcept { return script; }
    const KScript& GetProductData() const noexcept { return productData; }
    const KMacroContext& GetMacros() const noexcept { return macros; }
    std::string Expand(const std::string& text) const { return macros.Expand(text); }

    /// Every line that a run could load, on a machine of either architecture and for any version,
    /// with the fields that it has here. In the order of the file.
    const std::vector<std::reference_wrapper<const KScriptRule>>& GetLines() const noexcept {
        return lines;
    }
    /// The names of the sections that these lines could come from.
    const std::set<std::string>& GetLoadedSections() const noexcept { return loadedSections; }
    /// Whether a section is there that such a name could stand for (MacroText.h).
    bool CouldBeASection(const std::string& pattern) const;
    /// Whether a path is a directory of the system, or leads to one.
    bool IsOfTheSystem(const std::string& path) const;
    /// Sections that include themselves, on a machine of either architecture.
    const std::vector<KScriptCycle>& GetCycles() const noexcept { return cycles; }
    const KPlan& GetInstall() const noexcept { return install; }
    const std::vector<KPlanStep>& GetInstallSteps() const noexcept { return installSteps.Get(); }
    const KPlan& GetRemove() const noexcept { return remove; }
    const KPlannedTree& GetAfterInstall() const noexcept { return afterInstall; }
    const KPlannedTree& GetAfterRemove() const noexcept { return afterRemove; }

    /// By which the product is found again.
    std::string GetRecordLink() const { return Expand(KINS::Names::recordLink); }
    /// The configuration file, which holds the record.
    std::string GetRecordProfile() const { return Expand("$pathTargetConfig$$iniFile$"); }

    // Findings of the script, without severity and rule, which the check's row has.

    /// At a line's key.
    KFinding AtType(const KScriptLine& line, KText message, KText advice) const;
    /// At a line's value.
    KFinding AtValue(const KScriptLine& line, KText message, KText advice) const;
    /// At a field as the rule counts them, without empty ones.
    KFinding AtField(const KScriptLine& line, std::size_t field, KText message, KText advice) const;
    /// At a field as it is written, empty ones counted, `offset` bytes into it.
    KFinding AtWritten(
        const KScriptLine& line,
        std::size_t field,
        std::size_t offset,
        std::string text,
        KText message,
        KText advice
    ) const;
    /// At a section's header, or the file's begin.
    KFinding AtSection(const std::string& section, KText message, KText advice) const;

  private:
    std::string ChooseProductPath(const std::string& givenPath);
    void FindLines();
    const std::vector<std::string>& SectionsLike(const std::string& pattern);
    void FindCycles();

    const KSetupKit& kit;
    KScript script;
    KScript productData;
    KMacroContext macros{InstalledVersionText(LoadRecord(KINS::KInstaller()))};
    bool productPathIsGiven;
    std::string productPath;
    std::string service;
    std::shared_ptr<KScriptRules> rules;
    KPlannedTree afterInstall;
    KPlan install;
    KPlanSteps installSteps;
    KPlannedTree afterRemove;
    KPlan remove;
    std::vector<std::reference_wrapper<const KScriptRule>> lines; // of rules
    std::set<std::string> loadedSections;
    std::map<std::string, std::vector<std::string>> sectionsByPattern; // of those with "*"
    std::vector<KScriptCycle> cycles;
    mutable std::unordered_map<std::string, bool> ofTheSystem; // by path, of those asked about
    mutable KRealDirectories realDirectories;
};

} // namespace KSETUP
