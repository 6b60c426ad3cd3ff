// SPDX-License-Identifier: MIT
#include <sup++/KLog.h>

namespace KSUP {

KLog::KLog() : KLogBase("KLog") {}
KLog::~KLog() = default;

} // namespace KSUP
