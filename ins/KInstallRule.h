// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallRuleBase.h>

namespace KINS {

/// What the rule manager keeps: the base of every rule type.
class INS_EXPORT KInstallRule : public KInstallRuleBase {
  public:
    /// Copies the line; only Initialize reads it and can refuse it.
    KInstallRule(KInstallRuleManagerBase* owner, const KSUP::KString& line);
    ~KInstallRule() override;
};

} // namespace KINS
