// SPDX-License-Identifier: MIT
#include "dps/core/Version.h"

namespace DPS {

const char* GetCoreVersion() noexcept {
    return DPS_VERSION;
}

} // namespace DPS
