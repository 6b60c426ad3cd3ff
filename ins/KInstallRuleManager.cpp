// SPDX-License-Identifier: MIT
#include <ins/KInstallRuleManager.h>

namespace KINS {

KInstallRuleManager::KInstallRuleManager(KInstaller* owner) : KInstallRuleManagerBase(owner) {}

KInstallRuleManager::~KInstallRuleManager() = default;

} // namespace KINS
