// SPDX-License-Identifier: MIT
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/plan/AddedLines.h>
#include <setup/run/KSameInstall.h>
#include <setup/run/PlannedPaths.h>
#include <setup/state/ManifestLook.h>
#include <setup/state/StateDirectory.h>
#include <sup++/SvcData.h>

namespace KSETUP {

namespace {

/// A fingerprint is that of one manifest: where another run wrote one, or a restore put one back,
/// it stands for nothing.
std::string DigestManifest(const std::string& service) {
    return DigestFile(std::string(stateBaseDirectory) + "/" + service + "/manifest").sha256;
}

/// Of the kit's files, as far as the manifest has them.
KDigests KnownDigests(const KPlannedRun& planned, const KManifest& manifest) {
    KDigests known;
    for (const KCopy& copy :
         LastingCopies(planned.GetPlan(), planned.GetContext().kit.GetDirectory())) {
        const KManifestEntry* entry = manifest.Find(copy.target);
        if (entry != nullptr && !entry->isConfiguration && !entry->digest.empty()) {
            known.insert_or_assign(copy.source, KFileDigest{0, entry->size, entry->digest});
        }
    }
    return known;
}

} // namespace

KSameInstall::KSameInstall(KLockedProduct& locked)
    : product(locked),
      kit(locked.GetContext().kit.GetDirectory()) {}

bool KSameInstall::IsForTheSamePlace() const {
    const KSetupArguments& arguments = product.GetContext().arguments;
    const auto& record = product.GetRecord();
    return record && record->IsSound() && !product.GetInterrupted() && !arguments.reinstall &&
           ReadAddedLines().empty() &&
           (arguments.productPath.empty() ||
            NormalPath(arguments.productPath) == NormalPath(record->path));
}

bool KSameInstall::IsSameKit() const {
    const auto installed = KInstalledKit::Read(product.GetService());
    return installed && installed->manifest == DigestManifest(product.GetService()) &&
           (installed->look == kit.GetLook() ||
            installed->content == kit.ReadContent({}, product.GetContext().ShallStop()));
}

bool KSameInstall::IsDone() const {
    if (!IsForTheSamePlace() || !IsSameKit()) {
        return false;
    }
    const KInstalledRecord& record = *product.GetRecord();
    const auto manifest = KManifest::Read(product.GetService());
    if (!manifest || record.version != product.GetMacros().Expand("$verInfo$") ||
        record.buildNumber != SvcGetOEMDataEx()->buildNumber ||
        !LooksAsInstalled(*manifest, {RecordFile(product.GetInstaller(), record)})) {
        return false;
    }
    KRunReport& report = product.GetContext().report;
    report.version = record.version;
    report.buildNumber = record.buildNumber;
    report.formerVersion = record.version;
    report.productPath = record.path;
    return true;
}

void KSameInstall::Remember(const KPlannedRun& planned, const KManifest& manifest) const {
    try {
        WriteFingerprint(planned, manifest);
    } catch (const KSetupFailure& failure) {
        product.GetContext().report.notes.push_back(
            std::string("What kit it was could not be remembered, so the next install of it does "
                        "all again: ") +
            failure.what()
        );
    }
}

void KSameInstall::WriteFingerprint(const KPlannedRun& planned, const KManifest& manifest) const {
    const std::string& service = product.GetService();
    const KKitFingerprint now(product.GetContext().kit.GetDirectory());
    if (now.GetLook() != kit.GetLook()) { // somebody wrote to it meanwhile
        KInstalledKit::Remove(service);
        return;
    }
    KInstalledKit{
        now.GetLook(), now.ReadContent(KnownDigests(planned, manifest)), DigestManifest(service)}
        .Write(service);
}

} // namespace KSETUP
