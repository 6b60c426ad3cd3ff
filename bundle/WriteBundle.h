// SPDX-License-Identifier: MIT
#pragma once

#include <string>

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

} // namespace KBUNDLE
