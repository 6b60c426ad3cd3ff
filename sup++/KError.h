// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KErrorBase.h>

namespace KSUP {

/// The one type of error that both libraries throw. Catch it as `const KSUP::KError&`; other
/// exceptions (out of memory, those of callbacks) pass through the libraries unchanged.
class SUP_EXPORT KError : public KErrorBase {
  public:
    /// KErrorSource makes errors; this is for whoever has a level and a place of its own.
    KError(
        TRACE_MESSAGE level,
        unsigned code,
        unsigned subCode,
        unsigned line,
        const char* file,
        const char* function,
        const KDriver* driver
    );
    ~KError() override;
    /// Never throws: a copy shares its contents (KErrorBase).
    KError(const KError&) noexcept;
    /// Never throws: both share their contents then (KErrorBase).
    KError& operator=(const KError&) noexcept;
};

} // namespace KSUP
