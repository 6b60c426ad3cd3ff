// SPDX-License-Identifier: MIT
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/plan/AddedLines.h>
#include <setup/plan/SameKit.h>
#include <setup/run/KSameInstall.h>
#include <setup/run/PlannedPaths.h>

#include <sys/processes/BlockedSignals.h>

namespace KSETUP {

namespace {

/// Of the kit's files, as far as the manifest has them.
/// The manifest knows the digests of what was copied, by the path in the kit.
///
/// Lifetime   borrows both
KKitFingerprint::KnownFiles FindKnown(const KPlannedRun& planned, const KManifest& manifest) {
    KKitFingerprint::KnownFiles known;
    for (const KCopy& copy :
         LastingCopies(planned.GetPlan(), planned.GetContext().kit.GetDirectory())) {
        const KManifestEntry* entry = manifest.Find(std::string(copy.target));
        if (entry != nullptr && !entry->isConfiguration && !entry->digest.empty()) {
            known.insert_or_assign(copy.source, KKitFingerprint::Known{entry->size, entry->digest});
        }
    }
    return known;
}

} // namespace

KSameInstall::KSameInstall(const KTrustedKit& trusted)
    : product(trusted.GetProduct()),
      kit(trusted.GetLook()) {}

void KSameInstall::LookAgain() {
    const KSYS::BlockedSignals
        blocked; // for the thread that inherits them: they are the main one's
    try {
        laterLook = std::async([directory = product.GetContext().kit.GetDirectory()] {
            return KKitFingerprint(std::make_shared<KKitLook>(directory)).GetLook();
        });
    } catch (const std::exception&) {
        // Remember looks itself
    }
}

bool KSameInstall::IsForTheSamePlace() const {
    const KSetupArguments& arguments = product.GetContext().arguments;
    const auto& record = product.GetRecord();
    return record && record->IsSound() && !product.GetInterrupted() && !arguments.reinstall &&
           ReadAddedLines().empty() && arguments.givenValues.empty() &&
           (arguments.productPath.empty() ||
            NormalPath(arguments.productPath) == NormalPath(record->path));
}

bool KSameInstall::IsDone() const {
    if (!IsForTheSamePlace()) {
        return false;
    }
    const KInstalledRecord& record = *product.GetRecord();
    if (!IsInstalledFrom(
            kit,
            product.GetInstaller(),
            record,
            product.GetService(),
            product.GetOwnership(),
            product.GetMacros().Expand("$verInfo$"),
            product.GetContext().ShallStop()
        )) {
        return false;
    }
    KRunReport& report = product.GetContext().report;
    report.version = record.version;
    report.buildNumber = record.buildNumber;
    report.formerVersion = record.version;
    report.productPath = record.path;
    return true;
}

void KSameInstall::Remember(const KPlannedRun& planned, const KManifest& manifest) {
    try {
        WriteFingerprint(planned, manifest);
    } catch (const KSetupFailure& failure) {
        product.GetContext().report.notes.push_back(Text(
            "What kit it was could not be remembered, so the next install of it does all again: %s",
            failure.GetText()
        ));
    }
}

void KSameInstall::WriteFingerprint(const KPlannedRun& planned, const KManifest& manifest) {
    const std::string& service = product.GetService();
    const std::string look =
        laterLook.valid()
            ? laterLook.get()
            : KKitFingerprint(std::make_shared<KKitLook>(product.GetContext().kit.GetDirectory()))
                  .GetLook();
    if (look != kit.GetLook()) { // somebody wrote to it meanwhile
        KInstalledKit::Remove(service);
        return;
    }
    KInstalledKit{
        kit.GetLook(), kit.ReadContent(FindKnown(planned, manifest)), DigestManifest(service)}
        .Write(service);
}

} // namespace KSETUP
