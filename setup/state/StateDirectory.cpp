// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/state/StateDirectory.h>
#include <sup++/KUtil.h>

namespace KSETUP {

std::vector<std::string> WrittenByEachInstall() {
    return {KSUP::KUtil::GetPathName(KINS::Names::logDirectoryId, "").c_str(), stateBaseDirectory};
}

} // namespace KSETUP
