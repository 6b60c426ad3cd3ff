// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// What commands that the library runs have to do with the program that uses it.

#include <sup++/Export.h>

/// Names the file to whose end the output of commands goes (KShellCommand), made with mode 0640
/// where it is missing; a symbolic link at the path is refused when a command starts. Null or an
/// empty text means that output is dropped, as it is from the beginning.
///
/// Returns  0, or ENOMEM
/// Thread   any; holds for commands that start from then on
[[nodiscard]] SUP_EXPORT unsigned SvcSetCommandOutput(const char* path) noexcept;
