// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KSETUP {

/// Brings to the disk what was deleted at paths, each file system once, before what was remembered
/// of it goes: without that a power cut may bring back what nobody knows of any more.
///
/// The paths need not be there any more, nor their directories. Links on the way count as they are
/// now, so ask for paths as they were resolved before something was deleted. No directory is held
/// open meanwhile: a script may unmount what it deleted from, which flushes it too.
///
/// Throws   KSetupFailure with ExitCode::cannotWrite
void FlushDeletions(const std::vector<std::string>& paths);

} // namespace KSETUP
