// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/rules/KRunChanges.h>

#include <cerrno>

namespace KSETUP {

void KRunChanges::NoteDeletion(const std::string& path, unsigned failed) {
    const bool isExpected =
        failed == ENOENT || failed == ENOTDIR || failed == ENOTEMPTY || failed == EEXIST;
    if (failed != 0 && !isExpected) {
        resisted[NormalPath(path)] = failed;
    }
}

} // namespace KSETUP
