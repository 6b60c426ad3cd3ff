// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace KSETUP {

/// Makes a program or library look for its libraries in its own directory, in the bytes of its
/// file. One that names no directories at all is left as it is: the system's are where it looks.
///
/// Returns  whether the file names $ORIGIN alone now
/// Throws   KSetupFailure for a file that is no 64-bit ELF file of this machine's byte order
bool SetRunPathToOrigin(std::string& bytes, const std::string& nameForErrors);

/// Has a program or library look for others where it was told to and in no directory of the system, also
/// when it loads them while it runs. Returns false for one without room for that in its list.
///
/// Throws   KSetupFailure for what is not of this machine's kind
bool SetNoDefaultLibraries(std::string& bytes, const std::string& nameForErrors);

} // namespace KSETUP
