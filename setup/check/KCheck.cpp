// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/check/KCheck.h>
#include <setup/check/Suppressions.h>
#include <setup/plan/ValueMacros.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <array>
#include <tuple>

namespace KSETUP {

namespace {

struct Check {
    const char* rule;
    KSeverity severity;
    Checks::Findings (*find)(const KCheckContext& context);
};

constexpr KSeverity error = KSeverity::Error;
constexpr KSeverity warning = KSeverity::Warning;

/// Names in comments that are no warning's. Here, for the table has the names.
Checks::Findings WrongSuppressions(const KCheckContext& context);

/// docs/check.md has a row for each, with an example.
constexpr std::array table = std::to_array<Check>({
    {"product-data", error, Checks::ProductMistakes},
    {"unknown-type", error, Checks::UnknownTypes},
    {"field-count", error, Checks::FieldCounts},
    {"ignored-operation", error, Checks::IgnoredOperations},
    {"failing-operation", error, Checks::FailingOperations},
    {"empty-field", error, Checks::EmptyFields},
    {"unknown-macro", error, Checks::UnknownMacros},
    {"include-cycle", error, Checks::IncludeCycles},
    {"missing-section", error, Checks::MissingSections},
    {"empty-key", error, Checks::EmptyKeys},
    {"missing-source", error, Checks::MissingSources},
    {"empty-wildcard", error, Checks::EmptyWildcards},
    {"skipped-directory", error, Checks::SkippedDirectories},
    {"copy-onto-itself", error, Checks::CopiesOntoThemselves},
    {"no-record-link", error, Checks::MissingRecordLinks},
    {"no-record-file", error, Checks::MissingRecordProfiles},
    {"link-left", error, Checks::LeftRecordLinks},
    {"default-path", error, Checks::DefaultPaths},
    {"system-deletion", error, Checks::SystemDeletions},
    {"copy-before-create", error, Checks::LateDirectories},
    {"link-onto-file", error, Checks::LinksOntoFiles},
    {"failing-service", error, Checks::FailingServices},
    {"invalid-rule", error, Checks::InvalidRules},
    {"mode-of-nothing", error, Checks::ModesOfNothing},
    {"copied-set-id", error, Checks::CopiedSetIds},
    {"value-use", error, Checks::WrongValueUses},
    {"overwritten-configuration", warning, Checks::OverwrittenConfigurations},
    {"blank-after-comma", warning, Checks::BlanksAfterCommas},
    {"macro-value", warning, Checks::MacroValues},
    {"copy-to-root", warning, Checks::CopiesToRoot},
    {"unquoted-macro", warning, Checks::UnquotedMacros},
    {"secret", warning, Checks::Secrets},
    {"unused-value", warning, Checks::UnusedValues},
    {"not-removed", warning, Checks::LeftBehind},
    {"not-kept", warning, Checks::FilesNotKept},
    {"missing-directory", warning, Checks::MissingDirectories},
    {"relative-path", warning, Checks::RelativePaths},
    {"new-name", warning, Checks::NewNames},
    {"wildcard-link", warning, Checks::WildcardLinks},
    {"missing-separator", warning, Checks::MissingSeparators},
    {"changed-kit", warning, Checks::ChangedKits},
    {"shared-path", warning, Checks::SharedProductPaths},
    {"double-copy", warning, Checks::DoubleCopies},
    {"deleted-again", warning, Checks::DeletionsOfNewFiles},
    {"unloaded-section", warning, Checks::UnloadedSections},
    {"section-in-brackets", warning, Checks::SectionsInBrackets},
    {"record-target", warning, Checks::DanglingRecordLinks},
    {"service-not-installed", warning, Checks::UnknownServices},
    {"service-program", warning, Checks::ServicePrograms},
    {"running-service", warning, Checks::RunningServices},
    {"unconfined-service", warning, Checks::UnconfinedServices},
    {"unknown-owner", warning, Checks::UnknownOwners},
    {"set-id-owner", warning, Checks::SetIdsWithoutOwner},
    {"link-out-of-product", warning, Checks::LinksOutOfTheProduct},
    {"wrong-suppression", warning, WrongSuppressions},
});

Checks::Findings WrongSuppressions(const KCheckContext& context) {
    std::vector<std::string> warnings;
    std::vector<std::string> errors;
    for (const Check& check : table) {
        (check.severity == warning ? warnings : errors).emplace_back(check.rule);
    }
    const auto has = [](const std::vector<std::string>& names, const std::string& name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    Checks::Findings found;
    for (const KSuppression& suppression : ReadSuppressions(context.GetScript())) {
        const std::string& name = suppression.name;
        if (has(warnings, name)) {
            continue;
        }
        const bool isError = has(errors, name);
        const std::string meant = FindMeant(name, warnings);
        KFinding finding;
        finding.line = suppression.line;
        finding.column = suppression.column;
        finding.text = name;
        finding.message = name.empty() ? Text("this comment allows no warning")
                                       : Text(
                                             isError ? TextFormat("\"%s\" is an error, which "
                                                                  "nothing allows")
                                                     : TextFormat("\"%s\" is no warning of the "
                                                                  "check"),
                                             name
                                         );
        finding.advice = isError          ? Text("fix the line instead")
                         : !meant.empty() ? Text("write \"%s\"", meant)
                                          : Text("write the name that stands behind the warning");
        found.push_back(std::move(finding));
    }
    return found;
}

auto PlaceOf(const KFinding& finding) {
    return std::tie(
        finding.file, finding.line, finding.column, finding.rule, finding.message.English()
    );
}

KCheckResult Run(const KCheckContext& context, KSeverity least) {
    KCheckResult result;
    result.hasCycle = !context.GetCycles().empty();
    for (const Check& check : table) {
        if (check.severity > least) {
            continue;
        }
        for (KFinding& finding : check.find(context)) {
            finding.severity = check.severity;
            finding.rule = check.rule;
            if (finding.file.empty()) {
                finding.file = "install.ini";
            }
            result.findings.push_back(std::move(finding));
        }
    }
    std::vector<KFinding>& all = result.findings;
    const KAllowedWarnings allowed(context.GetScript());
    std::erase_if(all, [&](const KFinding& finding) { return allowed.Has(finding); });
    std::stable_sort(all.begin(), all.end(), [](const auto& left, const auto& right) {
        return PlaceOf(left) < PlaceOf(right);
    });
    // A section that is included twice has its lines in a plan twice.
    const auto same = [](const auto& left, const auto& right) {
        return PlaceOf(left) == PlaceOf(right);
    };
    all.erase(std::unique(all.begin(), all.end(), same), all.end());
    return result;
}

} // namespace

std::size_t KCheckResult::Count(KSeverity severity) const noexcept {
    return static_cast<std::size_t>(std::count_if(
        findings.begin(),
        findings.end(),
        [&](const KFinding& finding) { return finding.severity == severity; }
    ));
}

KCheckResult CheckKit(const KSetupKit& kit, const std::string& productPath) {
    KValueTexts standards;
    for (const KDeclaredValue& value : kit.GetValues()) {
        if (value.standard || value.isSecret) { // a secret is asterisks
            standards.emplace(value.name, value.standard.value_or(""));
        }
    }
    SetValueMacros(kit.GetValues(), standards);
    return Run(KCheckContext(kit, productPath, std::make_shared<KDiskView>()), warning);
}

KCheckResult CheckKitForErrors(
    const KSetupKit& kit, const std::string& productPath, const std::shared_ptr<KDiskView>& view
) {
    return Run(KCheckContext(kit, productPath, view), error);
}

} // namespace KSETUP
