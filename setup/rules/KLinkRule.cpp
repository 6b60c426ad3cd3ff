// SPDX-License-Identifier: MIT
#include <setup/rules/KLinkRule.h>
#include <setup/rules/KOwnedFileRule.h>
#include <sup++/KFileUtil.h>

namespace KSETUP {

void KLinkRule::Execute() {
    const KSUP::KString path = Get(KSetupField::Path);
    Tell(path, "Making link " + path);
    MakeWayForLink(policy, path, Get(KSetupField::LinkTarget));
    KSUP::KFileUtil::CreateSymbolicLink(Get(KSetupField::LinkTarget), path);
}

} // namespace KSETUP
