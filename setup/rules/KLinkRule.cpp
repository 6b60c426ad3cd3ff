// SPDX-License-Identifier: MIT
#include <setup/rules/KLinkRule.h>
#include <setup/rules/KOwnedFileRule.h>
#include <sup++/KFileUtil.h>

namespace KSETUP {

void KLinkRule::Execute() {
    const KSUP::KString path = Get(KSetupField::Path);
    Tell(path, "Making link " + path);
    const auto former = LookAtEntry(path.c_str());
    if (former && former->kind != KManifestEntry::Kind::Link) {
        MakeWay(policy, path.c_str());
    }
    KSUP::KFileUtil::CreateSymbolicLink(Get(KSetupField::LinkTarget), path);
}

} // namespace KSETUP
