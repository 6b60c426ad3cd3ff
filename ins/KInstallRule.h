// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallRuleBase.h>

namespace KINS {

/// What the rule manager keeps: the base of every rule type.
class INS_EXPORT KInstallRule : public KInstallRuleBase {
  public:
    /// See KInstallRuleBase.
    KInstallRule(KInstallRuleManagerBase* owner, const KSUP::KString& line);
    ~KInstallRule() override;
};

} // namespace KINS
