// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <bundle/BundleFormat.h>

namespace KBUNDLE {

/// The script that chooses among the programs of a bundle, with "@HEADS@" and others where something is
/// put in.
std::string_view GetChoosingScript() noexcept;

/// Programs start where a whole number of these do, as the script has it too.
inline constexpr std::size_t headBlockBytes = 4096;

/// The script puts the program into a directory whose name begins so, as this file. It has both too.
inline constexpr std::string_view headDirectoryBegin = ".ins-setup-head-";
inline constexpr std::string_view headFile = "head";

/// What a bundle of several architectures begins with: a script that executes the program for the machine
/// it is run on. The programs follow each other, each filled up with zeros to whole blocks.
///
/// `heads` have their lengths, and get where they lie. Returns the script, in whole blocks too.
std::string JoinedHead(std::vector<KBundleHead>& heads);

/// "x86_64, x86 and aarch64".
std::string NamesOf(const std::vector<KBundleHead>& heads);

} // namespace KBUNDLE
