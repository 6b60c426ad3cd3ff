// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace KSUP {

/// What is done to a path, in an error and in the report of a run's progress.
enum class KOperation : std::uint32_t {
    None = 0, ///< nothing, or it is not known
    Read,     ///< opened, read, listed
    Write,    ///< made, written, linked, or given another mode
    Delete,   ///< deleted
    Execute,  ///< run as a program
};

} // namespace KSUP
