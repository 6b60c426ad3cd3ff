// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// Trace messages: what the libraries say to the people who run the machine, beside the setup log.

#include <sup++/Export.h>

/// A trace level. The libraries use 24 (support layer), 48 (rules) and 400 (installer).
typedef unsigned int TRACE_MESSAGE;

namespace KSUP {
using ::TRACE_MESSAGE;
} // namespace KSUP

/// Formats as printf does, without a limit on the length, and hands the text to the process-wide
/// logger (SvcGetGlobalLogger) and to the trace hook. It never throws, never changes errno and
/// never writes to a setup log.
SUP_EXPORT void Msg(TRACE_MESSAGE level, const char* format, ...) noexcept
    __attribute__((format(printf, 2, 3)));
