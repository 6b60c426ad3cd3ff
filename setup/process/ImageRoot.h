// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KSetupArguments.h>

#include <optional>
#include <string>

namespace KSETUP {

/// The directory that `--root` names, absolute and without links, of the system that is to be.
///
/// Throws   KSetupFailure for what is no directory, the root of this machine, and a directory that
///          others than root could change, or than who called sudo(8) on the way to it
std::string FindImageRoot(const std::string& given);

/// Goes on in the directory that `--root` names as if it were the machine: in a new process, with
/// processes and mounts of its own, without systemd. What the arguments name on this machine is
/// read before (the values), or shown there (the kit, the bundle) and named anew in the arguments;
/// descriptors stay open. While there is one thread.
///
/// Returns  nothing in the process that is to go on; in the one that called the exit code of that,
///          once it has ended
/// Throws   KSetupFailure where nothing of this can be done; nothing was changed then
std::optional<int> GoIntoImageRoot(KSetupArguments& arguments);

} // namespace KSETUP
