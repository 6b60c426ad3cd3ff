// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/kit/KitSeal.h>
#include <setup/plan/ProductPath.h>
#include <setup/plan/RunRefusals.h>
#include <setup/preflight/Preflight.h>
#include <setup/run/InstallValues.h>
#include <setup/run/KPlannedRun.h>
#include <setup/script/KScript.h>
#include <sup++/SvcData.h>

namespace KSETUP {

KPlannedRun KPlannedRun::OfInstall(const KTrustedKit& kit) {
    KLockedProduct& locked = kit.GetProduct();
    const KRunContext& context = locked.GetContext();
    KRunReport& report = context.report;
    RequireTrusted(locked.GetRecord());
    report.version = locked.GetMacros().Expand("$verInfo$");
    report.buildNumber = SvcGetOEMDataEx()->buildNumber;
    if (const auto& record = locked.GetRecord()) {
        report.formerVersion = record->version;
        // A run that was killed left the link and no record: there is no version to protect.
        if (!context.arguments.allowDowngrade &&
            record->version != KINS::Names::noRecordedVersion) {
            RequireNoDowngrade(
                report.product,
                {record->version, record->buildNumber},
                {report.version, report.buildNumber}
            );
        }
    }
    const auto& begun = locked.GetInterrupted();
    const bool goesOn = context.arguments.productPath.empty() && !locked.GetRecord() && begun &&
                        begun->damage.empty(); // where the interrupted run was at work
    return {kit, Action::Install, goesOn ? begun->path : context.arguments.productPath};
}

std::optional<KPlannedRun> KPlannedRun::OfRemoval(const KTrustedKit& kit) {
    KLockedProduct& locked = kit.GetProduct();
    KRunReport& report = locked.GetContext().report;
    RequireTrusted(locked.GetRecord());
    if (const auto& record = locked.GetRecord()) {
        report.version = record->version;
        report.buildNumber = record->buildNumber;
        return KPlannedRun(kit, Action::Remove, locked.GetContext().arguments.productPath);
    }
    const auto& begun = locked.GetInterrupted();
    if (!begun || !begun->damage.empty()) {
        return std::nullopt;
    }
    report.version = begun->version; // the link is not there; the state knows the rest
    return KPlannedRun(kit, Action::Remove, begun->path);
}

KPlannedRun::KPlannedRun(const KTrustedKit& trusted, Action what, const std::string& wantedPath)
    : kit(&trusted),
      action(what),
      view(std::make_shared<KDiskView>(trusted.GetLook())) {
    VerifyKit();
    KLockedProduct& locked = GetProduct();
    const KRunContext& context = locked.GetContext();
    KMacroContext& macros = locked.GetMacros();
    const KScript script(context.kit.GetScript());
    productPath = ChooseProductPath(locked.GetRecord(), macros, script, wantedPath);
    context.report.productPath = productPath;
    macros.SetProductPath(productPath);
    values = Installs() ? FindInstallValues(locked, view)
                        : FindRemovalValues(context.kit, locked.GetService());
    SetValueMacros(context.kit.GetValues(), values);
    KPlannedTree tree(KPlannedTree::Below::Disk, context.kit.GetDirectory(), view);
    const char* section = Installs() ? KINS::Names::installSection : KINS::Names::removeSection;
    policy = std::make_unique<KChangePolicy>(
        locked.GetOwnership(), productPath, OptionsOf(context.arguments)
    );
    plan = std::make_unique<KPlan>(script, section, macros.GetExpander(), tree, *policy);
}

/// From here on the kit is what it was made as.
void KPlannedRun::VerifyKit() {
    const KRunContext& context = GetContext();
    if (kit->IsKeptOne()) { // a wildcard may have kept the seal
        return;
    }
    const KSealExtent extent = Installs() ? KSealExtent::Whole : KSealExtent::WhatIsThere;
    sealed = VerifySeal(context.kit.GetDirectory(), extent, context.ShallStop());
}

} // namespace KSETUP
