// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace KSYS {

/// A process that runs one of the files that were asked about.
struct ProgramInUse {
    pid_t id = 0;
    std::string name; ///< as ps(1) shows it; "?" when it has ended meanwhile
    std::string file; ///< the path that was asked about
};

/// The processes that run one of these files, by whatever name they were started. Files that are not
/// there count for none; nothing is known without /proc.
///
/// Throws   std::bad_alloc
std::vector<ProgramInUse> FindProgramsInUse(const std::vector<std::string>& files);

} // namespace KSYS
