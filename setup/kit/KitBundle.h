// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KSETUP {

/// Makes one file of a kit that unpacks itself and runs the `ins-setup` in it, on any Linux of this
/// architecture: the loader and all libraries come along. A kit without an `ins-setup` of its own gets
/// the running program.
///
/// With `secretKey`, the name of a file, what is in it is sealed and signed, and the bundle signed as
/// FILE.minisig; a kit that is signed needs one, for what is in the bundle is more. The signature of
/// a former bundle goes.
///
/// With `others`, bundles of the same kit that were made on other architectures, it is one for all of
/// them; it is sealed and signed anew.
///
/// Returns  "x86_64, aarch64" where there are several, else nothing
/// Throws   KSetupFailure, with a former file as it was
std::string MakeBundle(
    const std::string& kitDirectory,
    const std::string& file,
    const std::string& secretKey = {},
    const std::vector<std::string>& others = {}
);

} // namespace KSETUP
