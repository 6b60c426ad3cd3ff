// SPDX-License-Identifier: MIT
#pragma once

#include <setup/script/KMacroContext.h>
#include <setup/script/KScript.h>
#include <setup/state/KInstalledRecord.h>
#include <setup/text/KText.h>

#include <optional>
#include <string>

namespace KSETUP {

/// Why nothing may be installed in, or removed from, this directory; empty when it is fine. A
/// removal deletes what its script names below the product path: with the path of the system
/// itself, that would be what other programs own.
/// `service` is the product's, whose directory in /etc is its own.
KText WhyNotAProductPath(const std::string& path, const std::string& service = {});

/// Where a run is to work: `given`, or else where the product is installed, or else where the script
/// proposes.
///
/// Throws   KSetupFailure for an invalid path, and for one beside the installed product's
std::string ChooseProductPath(
    const std::optional<KInstalledRecord>& record,
    const KMacroContext& macros,
    const KScript& script,
    const std::string& given
);

} // namespace KSETUP
