// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace KSETUP {

/// The name of a run that begins now, so that a backup can tell whether it is of the last one: the
/// time in UTC with nanoseconds and the process id, as "20261122T050912.123456789Z-4711".
///
/// The state file names the run that goes on or did not come to its end, the manifest the last one
/// that did, and a backup's index the run that it is of.
std::string MakeRunId();

} // namespace KSETUP
