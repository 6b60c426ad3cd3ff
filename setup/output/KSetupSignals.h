// SPDX-License-Identifier: MIT
#pragma once

#include <sys/processes/KStopSignals.h>

namespace KSETUP {

/// The signals by which people stop the program.
using KSetupSignals = KSYS::KStopSignals;

} // namespace KSETUP
