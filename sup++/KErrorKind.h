// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace KSUP {

/// What kind of failure an error tells. The numbers of KErrorCode.h are also numbers of the system:
/// with the kind nobody has to guess which one a code is.
enum class KErrorKind : std::uint32_t {
    Own = 0,    ///< a code of KErrorCode.h that has no nearer kind below
    System,     ///< the code is the system's errno; path and operation say at what
    Cancelled,  ///< the run was stopped on request
    Rule,       ///< a line of the script is no rule, or a rule cannot be executed as it is written
    RecordLink, ///< the link of the product's record is missing (64) or relative (16)
    RecordFile, ///< the file of the product's record is missing
    Process,    ///< a process could not be started or stopped; the reason says why
    Service,    ///< a service call failed: the code is its status, the reason is its words
};

} // namespace KSUP
