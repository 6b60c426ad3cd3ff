// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace KSETUP {

/// Makes the process independent of who started it; the first thing that main does, before there
/// are threads:
///
/// - it refuses to run with the rights of its file's owner or group (set-id bits, capabilities);
/// - descriptors 0, 1 and 2 are open (on /dev/null), so that no file that is opened later is taken
///   for the standard output;
/// - the umask is 022, the directory is "/", no core is dumped (it would hold what root reads),
///   a reader who goes away (SIGPIPE) ends nothing;
/// - of the environment it keeps HOME, TERM, COLUMNS, NO_COLOR, LANG, LANGUAGE and LC_*; PATH is
///   /usr/sbin:/usr/bin:/sbin:/bin. TMPDIR is not kept.
///
/// Returns  the former directory, without a separator at its end but for "/" itself, for relative
///          paths in the arguments; empty when it is not to be found any more
/// Throws   KSetupFailure: ExitCode::notRoot when it refuses, ExitCode::internal when something
///          else fails; the process is to end then
std::string PrepareProcess();

} // namespace KSETUP
