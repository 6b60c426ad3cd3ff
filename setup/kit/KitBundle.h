// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace KSETUP {

/// Makes one file of a kit that unpacks itself and runs `ins-setup` from it, by makeself(1). A kit
/// without an `ins-setup` of its own gets the running program and the libraries that a minimal Debian
/// system does not have; they look for each other in their own directory and nowhere else.
///
/// With `secretKey`, the name of a file, what is in it is sealed and signed, and the bundle signed as
/// FILE.minisig; a kit that is signed needs one, for what is in the bundle is more. The signature of
/// a former bundle goes.
///
/// Throws   KSetupFailure, with a former file as it was
void MakeBundle(
    const std::string& kitDirectory,
    const std::string& product,
    const std::string& file,
    const std::string& secretKey = {}
);

} // namespace KSETUP
