// SPDX-License-Identifier: MIT
#pragma once

#include "dps/core/Export.h"

namespace DPS {

/// What libdpscore.so was built as, such as "2.1 (build 37)". The program compares it with its own:
/// an upgrade that was cut off between the two must not go unnoticed.
DPS_EXPORT const char* GetCoreVersion() noexcept;

} // namespace DPS
