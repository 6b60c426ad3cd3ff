// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// Options on the process's command line: `--name=value` or `--name value`, with one or two dashes,
/// the name exactly as it stands. `--` ends the options; argument 0 is not looked at.

#include <sup++/Export.h>

/// Saves a command line in the global data record, instead of the process's own, which stands there
/// from the beginning.
///
/// Returns  0, 36 for null arguments, or ENOMEM
/// Thread   before other threads read the record
[[nodiscard]] SUP_EXPORT unsigned
SvcSetCommandLine(unsigned argc, const char* const* argv) noexcept;

/// Copies the next value of an option into `buffer`.
///
/// Units    `size` counts bytes with the terminating NUL
/// Returns  0 with the value; 64 when there are no more, or no command line; 36 for an option
///          without value, a value that does not fit (never cut), and a null argument. The cursor,
///          which starts at 0, then stands behind what was met
/// Lifetime `commandLine` is a text as the global data record holds it
[[nodiscard]] SUP_EXPORT unsigned SvcEnumerateStringFromCommandLine(
    unsigned flags,
    const char* commandLine,
    const char* prefix,
    const char* name,
    unsigned size,
    unsigned* cursor,
    char* buffer
) noexcept;

/// Copies the value of the first option named `section.key` of the saved command line.
///
/// Returns  0; 64 when there is none or `context` is null; 36 as above
[[nodiscard]] SUP_EXPORT unsigned SvcGetStringFromCommandLine(
    unsigned flags,
    const char* context,
    const char* section,
    const char* key,
    unsigned size,
    char* buffer
) noexcept;
