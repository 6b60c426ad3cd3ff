// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KProcessRuleBase.h>

namespace KINS {

/// The rule type behind the key "process".
class INS_EXPORT KProcessRule : public KProcessRuleBase {
  public:
    /// Copies the line; only Initialize reads it and can refuse it.
    KProcessRule(KInstallRuleManagerBase* owner, const KSUP::KString& line);
    ~KProcessRule() override;
};

} // namespace KINS
