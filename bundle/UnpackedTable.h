// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// What was unpacked of a bundle, told to the program that is run out of it. Each file was digested and
/// held against its table while it was written, so who knows the table need not read it once more.

#include <optional>
#include <string>

#include <bundle/BundleFormat.h>
#include <sys/files/KDescriptor.h>

namespace KBUNDLE {

/// Puts what is chosen of a table, which was unpacked to this directory, into memory that nobody can change
/// any more: for this process and those that it leaves the descriptor to.
///
/// Returns  a descriptor that is not open where it cannot be done: who asks is told nothing then
KSYS::KDescriptor KeepTable(const KBundleTable& table, const std::string& directory);

/// The table of what was unpacked to this directory, if this process has it: by a KeepTable of its own, or
/// left to it by the process that started it. Its names are below the directory.
std::optional<KBundleTable> FindKeptTable(const std::string& directory);

} // namespace KBUNDLE
