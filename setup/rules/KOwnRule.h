// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallRuleManagerBase.h>
#include <setup/script/KSetupRuleLine.h>

#include <string>

namespace KSETUP {

/// The line of one of ins-setup's own rule types, read while the script loads.
///
/// Throws   KSUP::KError 7000 with its problem for one that cannot be loaded
KSetupRuleLine ReadOwnLine(
    const KINS::KInstallRuleManagerBase& manager,
    const std::string& keyword,
    const std::string& value
);

/// A rule of one of these types: what they have in common.
class KOwnRule : public KINS::KInstallRule {
  public:
    KOwnRule(
        KINS::KInstallRuleManagerBase& owner, const KSUP::KString& type, const KSUP::KString& value
    );

    /// Reads the line; the fields, split as the engine does, are not looked at.
    void ParseRule(const std::vector<KSUP::KString>& fields) override;
    /// The line as it stands.
    KSUP::KString Description() const override;

  protected:
    /// The field of this meaning; from ParseRule on.
    KSUP::KString Get(KSetupField field) const;
    const KSetupRuleLine& GetLine() const noexcept { return line; }
    /// Says what the rule does now, and at which path.
    void Tell(const KSUP::KString& path, const KSUP::KString& status);

  private:
    KSUP::KString keyword;
    KSetupRuleLine line;
};

} // namespace KSETUP
