// SPDX-License-Identifier: MIT
#include <setup/state/StateDirectory.h>
#include <sup++/KUtil.h>

namespace KSETUP {

std::vector<std::string> WrittenByEachInstall() {
    return {KSUP::KUtil::GetPathName(logDirectory, "").c_str(), stateBaseDirectory};
}

} // namespace KSETUP
