// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KSETUP {

/// The first thing that the program does, while it has one thread: what its caller left around it is
/// not to decide how a product is installed by root.
///
/// Descriptors 0 to 2 are open afterwards (on /dev/null where they were not), files are made with
/// umask 022, of the environment only a list remains with a PATH of the system's own, the working
/// directory is "/", there are no core dumps, and neither a reader who goes away
/// nor a limit of file sizes ends the program.
///
/// Returns  the former working directory, for paths that the caller gave; empty when it has none
/// Throws   KSetupFailure when the program runs set-uid or set-gid: nothing was changed then
std::string PrepareProcess();

/// Overwrites what may be a secret in the command line that everybody can read of a process, and that the
/// journal has with each entry. `words` are the same command line; the engine keeps it as it was.
void HideSecrets(const std::vector<std::string>& words, char** argv);

/// A path as the caller meant it: a relative one is taken from their working directory.
std::string FromDirectory(const std::string& directory, const std::string& path);

} // namespace KSETUP
