// SPDX-License-Identifier: MIT
#include <setup/output/TextFormat.h>
#include <setup/run/KLockedProduct.h>

namespace KSETUP {

namespace {

std::string ServiceName() {
    return KINS::KInstaller().ExpandMacros("$serviceName$").c_str();
}

} // namespace

KLockedProduct::KLockedProduct(const KRunContext& given)
    : context(given),
      service(ServiceName()),
      lock(
          service,
          given.arguments.waitSeconds,
          given.ShallStop(),
          KSYS::LockPlaces::Of(0),
          [&reporter = given.reporter](const KText& words) { reporter.Say(Printable(words)); }
      ),
      record(LoadRecord(installer)),
      macros(InstalledVersionText(record)),
      interrupted(KRunState::Read(service)),
      ownership(service, record.has_value()) {
    context.report.recordDamage = record ? record->damage : "";
    if (interrupted) {
        context.reporter.Say(Printable(interrupted->ToWords()));
    }
}

} // namespace KSETUP
