// SPDX-License-Identifier: MIT
#include <ins/KInstallRule.h>

namespace KINS {

KInstallRule::KInstallRule(KInstallRuleManagerBase* owner, const KSUP::KString& line)
    : KInstallRuleBase(owner, line) {}

KInstallRule::~KInstallRule() = default;

} // namespace KINS
