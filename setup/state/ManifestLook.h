// SPDX-License-Identifier: MIT
#pragma once

#include <setup/state/KManifest.h>

#include <set>
#include <string>

namespace KSETUP {

/// Whether all stands as it was installed, found quickly: a file of the same size and time is taken
/// for the same, and read only where its time is another. The content of configuration and of the
/// files in `mayChange` does not count.
///
/// Throws   KSetupFailure for what cannot be looked at: it is not known to differ
bool LooksAsInstalled(const KManifest& manifest, const std::set<std::string>& mayChange = {});

} // namespace KSETUP
