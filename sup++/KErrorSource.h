// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KErrorBase.h>
#include <sup++/KErrorCode.h>
#include <sup++/KString.h>
#include <sup++/KVariant.h>
#include <sup++/Msg.h>

namespace KSUP {

/// The one way in which an error is raised: built, given its information, said through Msg with the
/// level at which it was built, thrown. Each source file names itself once:
///
///     namespace { constexpr KSUP::KErrorSource source{"ins/KFileRule"}; }
///     …
///     source.Raise(KSUP::TraceLevel::rule, KSUP::ErrorCode::malformedRule, line);
///
/// The function's name and line are the caller's own unless they are given.
class SUP_EXPORT KErrorSource {
  public:
    /// Lifetime `sourceFile` is kept as a pointer: pass a string literal
    constexpr explicit KErrorSource(const char* sourceFile) noexcept : file(sourceFile) {}

    /// Raises one of our own codes. Its kind is the one that the code has by itself: Rule, Cancelled,
    /// Process or Service, else Own.
    ///
    /// Throws   KError, always
    [[noreturn]] void Raise(
        TRACE_MESSAGE level,
        unsigned code,
        const KVariant& info = KVariant(),
        unsigned line = __builtin_LINE(),
        const char* function = __builtin_FUNCTION()
    ) const;

    /// Raises a code whose kind is not told by itself, such as a status that another call gave.
    [[noreturn]] void RaiseAs(
        const KErrorDetail& detail,
        TRACE_MESSAGE level,
        unsigned code,
        const KVariant& info = KVariant(),
        unsigned line = __builtin_LINE(),
        const char* function = __builtin_FUNCTION()
    ) const;

    /// Raises what a system call reported: `errorNumber` as code, and as information the path and
    /// the system's text, as in "/opt/dps/x.so: No space left on device".
    [[noreturn]] void RaiseSystem(
        unsigned errorNumber,
        const KString& path,
        unsigned line = __builtin_LINE(),
        const char* function = __builtin_FUNCTION()
    ) const;
    /// The same, saying what failed at the path.
    [[noreturn]] void RaiseSystem(
        unsigned errorNumber,
        KOperation operation,
        const KString& path,
        unsigned line = __builtin_LINE(),
        const char* function = __builtin_FUNCTION()
    ) const;

  private:
    const char* file;
};

} // namespace KSUP
