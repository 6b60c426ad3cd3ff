// SPDX-License-Identifier: MIT
#include <sup++/KLogPrefix.h>
#include <sup++/SvcTrace.h>

namespace KSUP {

KLogPrefix::KLogPrefix(TRACE_MESSAGE level) : text(SvcMapTraceMask(level)) {}

} // namespace KSUP
