// SPDX-License-Identifier: MIT
#include <ins/KProcessRule.h>

namespace KINS {

KProcessRule::KProcessRule(KInstallRuleManagerBase* owner, const KSUP::KString& line)
    : KProcessRuleBase(owner, line) {}

KProcessRule::~KProcessRule() = default;

} // namespace KINS
