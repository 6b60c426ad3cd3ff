// SPDX-License-Identifier: MIT
#pragma once

#include <setup/state/KKitLook.h>

#include <string>

#include <sys/types.h>

namespace KSETUP {

/// \file
/// Who else could change what root is about to believe, run or write to.

/// Who called sudo(8), which says so: their own files are theirs to run as root. Else root.
uid_t CallingUser();

/// Refuses a directory that others than root, or than who called sudo(8), could change: what is
/// installed from there would be theirs. All that is in it counts, the directories above it, and so
/// do what links in it lead to and the way there. The directory has no link in its path. What is found
/// private stays what the look has seen, but for root and who called sudo(8).
///
/// Throws   KSetupFailure with ExitCode::noKit
void RequirePrivate(const KKitLook& kit);

/// The same of the directories above it alone, for what is looked at where these do not count.
void RequirePrivateWay(const std::string& directory);

/// The first directory above an absolute path without links that others than root, or than who called
/// sudo(8), could change so that something else stands at the path; empty without one.
std::string FindOpenWay(const std::string& path);

/// The same of the directory of a log, where a group of the system's own may write. The log itself
/// is to be a regular file, or missing.
///
/// Throws   KSetupFailure with ExitCode::cannotWrite
void RequireSafeLog(const std::string& file);

} // namespace KSETUP
