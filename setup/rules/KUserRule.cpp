// SPDX-License-Identifier: MIT
#include <setup/rules/KUserRule.h>
#include <setup/script/UsersFile.h>

#include <utility>

namespace KSETUP {

KUserRule::KUserRule(
    KINS::KInstallRuleManagerBase& owner,
    const KSUP::KString& type,
    const KSUP::KString& value,
    std::shared_ptr<KUsersFile> productUsers
)
    : KOwnRule(owner, type, value),
      users(std::move(productUsers)) {}

void KUserRule::ParseRule(const std::vector<KSUP::KString>& fields) {
    KOwnRule::ParseRule(fields);
    users->Add(UsersFileLine(GetLine()));
}

void KUserRule::Execute() {
    Tell(users->GetPath(), "Making user " + Get(KSetupField::UserName));
    users->Apply(*manager);
}

} // namespace KSETUP
