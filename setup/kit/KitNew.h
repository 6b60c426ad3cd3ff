// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace KSETUP {

/// What a first kit is of.
enum class KKitKind {
    Program,
    Service, ///< with a user of its own, a directory for its data, and a unit
};

/// Writes a first kit, which can be installed and removed as it is, and whose comments tell the
/// order of a script.
///
/// Throws   KSetupFailure for a directory that is not empty, or that cannot be made
void MakeNewKit(const std::string& directory, KKitKind kind = KKitKind::Program);

} // namespace KSETUP
