// SPDX-License-Identifier: MIT
#pragma once

#include <setup/script/KScript.h>

#include <string>
#include <vector>

namespace KSETUP {

/// The values of --addProfileLine, as the engine reads them from the saved command line.
///
/// Throws   KSetupFailure with ExitCode::usage for one that the engine cannot read
std::vector<std::string> ReadAddedLines();

/// Of fewer or more than three parts the engine makes a rule that it refuses, or one that writes an
/// option without a name.
///
/// Throws   KSetupFailure with ExitCode::usage for such a value
void RequireAddedLines(const MacroExpander& expand);

} // namespace KSETUP
