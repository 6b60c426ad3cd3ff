// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <vector>

/// What a process that changes the machine keeps of what its caller left around it.
namespace KSYS {

/// Whether the program's file gives it more rights than its caller has: a set-id bit, or capabilities.
bool HasRaisedRights() noexcept;

bool IsRoot() noexcept;

using EnvironmentVariables = std::vector<std::pair<std::string, std::string>>;

/// Opens descriptors 0 to 2 on /dev/null where they are closed, sets umask 022, replaces the
/// environment, turns core dumps off and ignores SIGPIPE and SIGXFSZ, so that writing fails with EPIPE
/// and EFBIG. While the process has one thread.
///
/// Returns  0, or errno when /dev/null cannot be opened; nothing else is done then
/// Throws   std::bad_alloc
[[nodiscard]] unsigned IsolateProcess(const EnvironmentVariables& environment);

/// Makes a directory the working directory. Returns 0 or errno.
[[nodiscard]] unsigned EnterDirectory(const char* path) noexcept;

} // namespace KSYS
