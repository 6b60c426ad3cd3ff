// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace KSYS {

/// A process that runs, or has mapped, a file that was replaced or deleted since.
struct ReplacedFileInUse {
    pid_t id = 0;
    std::string name;    ///< as ps(1) shows it; "?" when it has ended meanwhile
    std::string file;    ///< where it was
    std::string service; ///< the service of systemd's that it belongs to; empty for none
};

/// The processes of all users that use files of the product that are gone (proc(5), maps). `isOurs`
/// is asked with paths. One file for each process. What this user may not see is not told.
///
/// Throws   std::bad_alloc
std::vector<ReplacedFileInUse>
FindReplacedFilesInUse(const std::function<bool(const std::string& path)>& isOurs);

} // namespace KSYS
