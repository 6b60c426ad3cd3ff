// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include <bundle/BundleFormat.h>

namespace KBUNDLE {

/// What becomes a bundle.
struct KBundleSource {
    std::string head;      ///< the program in front, which unpacks the rest and runs it
    std::string directory; ///< whose files and directories are packed; links and others are refused
    std::string place;     ///< where the product goes unless told otherwise; may be empty
};

/// Writes a bundle to `target`, a file that is not there yet, mode 0755. The same files give the same
/// bytes, however many processors there are.
///
/// Throws   KBundleError; a part of the bundle may be left then
void WriteBundle(const KBundleSource& source, const std::string& target);

/// What a bundle of several architectures has for one of them.
struct KArchitectureSource {
    std::string architecture; ///< as KArchitecture calls it
    std::string head;         ///< as of KBundleSource
    std::string directory;    ///< as of KBundleSource
};

/// What is in their directories, each with its architectures; what is the same, but for its time, stands
/// there once, with the time that the first one has.
///
/// Throws   KBundleError (CannotRead)
std::vector<KBundleEntry> JoinedEntries(const std::vector<KArchitectureSource>& sources);

/// Writes a bundle of several architectures, as above, with these entries.
///
/// Throws   KBundleError; a part of the bundle may be left then
void WriteJoinedBundle(
    const std::vector<KArchitectureSource>& sources,
    const std::string& place,
    const std::string& target
);

} // namespace KBUNDLE
