// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KProfileRule.h>

namespace KSETUP {

/// A rule of the engine for profiles that does not tell secrets: its description, which is in the log and
/// in what a run's listener hears, has no value that may be one, and none that came by --values.
class KMaskedProfileRule : public KINS::KProfileRule {
  public:
    KMaskedProfileRule(KINS::KInstallRuleManagerBase& owner, const KSUP::KString& line)
        : KProfileRule(&owner, line) {}

    KSUP::KString Description() const override;
    void ParseRule(const std::vector<KSUP::KString>& fields) override;

  private:
    KSUP::KString maskedKey; // empty where nothing is to be masked
};

} // namespace KSETUP
