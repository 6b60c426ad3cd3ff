// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/output/TextFormat.h>
#include <setup/run/KLockedProduct.h>

namespace KSETUP {

namespace {

std::string ServiceName() {
    return KINS::KInstaller().ExpandMacros("$serviceName$").c_str();
}

} // namespace

std::optional<KInstalledRecord> LoadRecord(const KINS::KInstaller& installer) {
    if (!installer.IsProductInstalled()) {
        return std::nullopt;
    }
    KSUP::KString path;
    KSUP::KString version;
    unsigned buildNumber = 0;
    installer.GetInstalledProductInformation(path, version, buildNumber);
    return KInstalledRecord{path.c_str(), version.c_str(), buildNumber};
}

std::string RecordFile(const KINS::KInstaller& installer, const KInstalledRecord& record) {
    return JoinPath(record.path, "config/") + installer.ExpandMacros("$iniFile$").c_str();
}

KLockedProduct::KLockedProduct(const KRunContext& given)
    : context(given),
      service(ServiceName()),
      lock(
          service,
          given.arguments.waitSeconds,
          given.ShallStop(),
          KSYS::LockPlaces::Of(0),
          [&reporter = given.reporter](const std::string& words) { reporter.Say(Printable(words)); }
      ),
      record(LoadRecord(installer)),
      interrupted(KRunState::Read(service)),
      ownership(service, record.has_value()) {
    if (interrupted) {
        context.reporter.Say(Printable(interrupted->ToWords()));
    }
}

} // namespace KSETUP
