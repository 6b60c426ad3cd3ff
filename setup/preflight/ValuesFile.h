// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/AddedLines.h>

#include <string>
#include <string_view>
#include <vector>

namespace KSETUP {

/// \file
/// The file of --values: sections and keys, written as a profile is, for the product's configuration.

/// What names standard input in the place of a file.
inline constexpr const char* standardInput = "-";

/// Reads the file and adds what is in it to the command line of these words (AddOptions). Nothing happens for an empty
/// name. It has to be root's, or that of who called sudo(8), and nobody else may read or change it:
/// passwords are what it is for.
///
/// Throws   KSetupFailure for another file, and for one that has what is no option
void TakeValues(const std::string& file, const std::vector<std::string>& words);

/// The options of such a text, in their order.
///
/// Throws   KSetupFailure with ExitCode::usage for a line that is no section, option or comment, or that a
///          profile could not hold; with the name of the file and the line's number, not its text
std::vector<KAddedOption> ParseValues(std::string_view text, const std::string& nameForErrors);

} // namespace KSETUP
