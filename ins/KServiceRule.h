// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallRule.h>

namespace KINS {

/// `service=action,name` or `service=install,name,displayName,program,arguments`: installs,
/// removes, starts or stops a system service. Case of the action does not matter. Macros are
/// expanded in the fields behind it while the script loads.
class INS_EXPORT KServiceRule : public KInstallRule {
  public:
    /// Copies the line; only Initialize reads it and can refuse it.
    KServiceRule(KInstallRuleManagerBase* owner, const KSUP::KString& line);
    ~KServiceRule() override;

    /// Throws   KSUP::KError 7000 for an unknown action, else with the status of the call that
    ///          failed; a removal never throws
    void Execute() override;
    KSUP::KString Description() const override;
    /// Throws   KSUP::KError 7000 unless there are 2 or 5 fields
    void ParseRule(const std::vector<KSUP::KString>& fields) override;

    /// Each returns 0, or throws KSUP::KError of the kind Service with the status of the call that
    /// failed and, as its reason, the words of SvcGetServiceErrorText.
    unsigned InstallService();
    /// As InstallService.
    unsigned StartService();
    /// As InstallService.
    unsigned StopService();
    /// Stops the service, waiting 30 s at most, and unregisters it; logs what fails.
    void RemoveService();

    /// Whether the product's own service runs, whatever service this rule is for.
    bool IsServiceRunning();

  private:
    KSUP::KString LogName() const;
    void SetStatus(unsigned messageId);

  protected:
    KSUP::KString action;      ///< the operation, in lower case
    KSUP::KString serviceName; ///< without ".service"

  private:
    KSUP::KString displayName;
    KSUP::KString program;
    KSUP::KString arguments;
};

} // namespace KINS
