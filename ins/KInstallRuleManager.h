// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallRuleManagerBase.h>

namespace KINS {

/// The manager that the installer holds.
class INS_EXPORT KInstallRuleManager : public KInstallRuleManagerBase {
  public:
    /// `owner` lends its script, log, macros and request to stop, and outlives the manager.
    explicit KInstallRuleManager(KInstaller* owner);
    ~KInstallRuleManager() override;
};

} // namespace KINS
