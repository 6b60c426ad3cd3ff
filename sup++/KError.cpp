// SPDX-License-Identifier: MIT
#include <sup++/KError.h>

namespace KSUP {

KError::KError(
    TRACE_MESSAGE level,
    unsigned code,
    unsigned subCode,
    unsigned line,
    const char* file,
    const char* function,
    const KDriver* driver
)
    : KErrorBase(level, code, subCode, line, file, function, driver) {}

KError::~KError() = default;
KError::KError(const KError&) noexcept = default;
KError& KError::operator=(const KError&) noexcept = default;

} // namespace KSUP
