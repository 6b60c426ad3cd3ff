// SPDX-License-Identifier: MIT
#pragma once

#include <setup/rules/KOwnRule.h>
#include <setup/rules/KUsersFile.h>

#include <memory>

namespace KSETUP {

/// `user=create,NAME[,HOME[,DESCRIPTION]]`: a user of the system, and a group of the same name,
/// without a password and a shell. One that is there stays as it is. No removal takes a user away:
/// files of the user may be anywhere, and another user would get the number.
class KUserRule : public KOwnRule {
  public:
    KUserRule(
        KINS::KInstallRuleManagerBase& owner,
        const KSUP::KString& type,
        const KSUP::KString& value,
        std::shared_ptr<KUsersFile> productUsers
    );
    /// Adds the user to the product's.
    void ParseRule(const std::vector<KSUP::KString>& fields) override;
    /// Throws   KSUP::KError as KUsersFile::Apply
    void Execute() override;

  private:
    std::shared_ptr<KUsersFile> users; // shared by the rules of a run
};

} // namespace KSETUP
