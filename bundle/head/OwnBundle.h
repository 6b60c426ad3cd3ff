// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include <sys/files/KDescriptor.h>

namespace KBUNDLE {

/// The bundle that this program stands in front of, or was taken out of.
struct KOwnBundle {
    std::string path; ///< as it was called
    /// Nothing where only that was asked, whether this program can be run.
    bool isWanted = true;
    bool isTakenOut = false; ///< by the script of a bundle of several architectures
};

/// Finds it. A program that was taken out is told of its bundle by the first of the words, which is taken
/// from them, and deletes itself with the directory that was made for it.
KOwnBundle FindOwnBundle(std::vector<std::string>& words);

/// Opens it, also where /proc is not mounted.
///
/// Throws   KBundleError (CannotRead)
KSYS::KDescriptor OpenBundle(const KOwnBundle& bundle);

} // namespace KBUNDLE
