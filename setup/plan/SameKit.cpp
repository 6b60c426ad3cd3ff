// SPDX-License-Identifier: MIT
#include <setup/plan/SameKit.h>
#include <setup/state/ManifestLook.h>
#include <setup/state/StateDirectory.h>
#include <sup++/SvcData.h>

namespace KSETUP {

namespace {

bool IsSameKit(
    const KKitFingerprint& kit, const std::string& service, const std::function<bool()>& shallStop
) {
    const auto installed = KInstalledKit::Read(service);
    return installed && installed->manifest == DigestManifest(service) &&
           (installed->look == kit.GetLook() || installed->content == kit.ReadContent({}, shallStop)
           );
}

} // namespace

std::string DigestManifest(const std::string& service) {
    return DigestFile(std::string(stateBaseDirectory) + "/" + service + "/manifest").sha256;
}

bool IsInstalledFrom(
    const KKitFingerprint& kit,
    const KINS::KInstaller& installer,
    const KInstalledRecord& record,
    const std::string& service,
    const KOwnership& ownership,
    const std::string& version,
    const std::function<bool()>& shallStop
) {
    return ownership.GetKnown() == KOwnership::Known::Manifest &&
           IsSameKit(kit, service, shallStop) && record.version == version &&
           record.buildNumber == SvcGetOEMDataEx()->buildNumber &&
           LooksAsInstalled(ownership.GetManifest(), {RecordFile(installer, record)});
}

} // namespace KSETUP
