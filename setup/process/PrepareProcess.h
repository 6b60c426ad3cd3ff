// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace KSETUP {

/// The first thing that the program does, while it has one thread: what its caller left around it is
/// not to decide how a product is installed by root.
///
/// Descriptors 0 to 2 are open afterwards (on /dev/null where they were not), files are made with
/// umask 022, of the environment only a list remains with a PATH of the system's own, the working
/// directory is "/", there are no core dumps, and a reader who goes away does not end the program.
///
/// Returns  the former working directory, for paths that the caller gave; empty when it has none
/// Throws   KSetupFailure when the program runs set-uid or set-gid: nothing was changed then
std::string PrepareProcess();

/// A path as the caller meant it: a relative one is taken from their working directory.
std::string FromDirectory(const std::string& directory, const std::string& path);

} // namespace KSETUP
