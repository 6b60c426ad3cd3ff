// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KProcessRuleBase.h>

namespace KINS {

/// The rule type behind the key "process".
class INS_EXPORT KProcessRule : public KProcessRuleBase {
  public:
    /// See KInstallRuleBase.
    KProcessRule(KInstallRuleManagerBase* owner, const KSUP::KString& line);
    ~KProcessRule() override;
};

} // namespace KINS
