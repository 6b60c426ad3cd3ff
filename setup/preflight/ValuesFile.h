// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/DeclaredValues.h>
#include <setup/output/KSetupArguments.h>
#include <setup/plan/AddedLines.h>

#include <string>
#include <string_view>
#include <vector>

namespace KSETUP {

/// \file
/// The file of --values: sections and keys, written as a profile is, for the product's configuration, and the
/// values that the kit declares (DeclaredValues.h).

/// What names standard input in the place of a file.
inline constexpr const char* standardInput = "-";

/// Reads what is in the file. It has to be root's, or that of who called sudo(8), and nobody else may
/// read or change it: passwords are what it is for.
///
/// Throws   KSetupFailure for another file, and for one that has what is no option
std::vector<KAddedOption> ReadValues(const std::string& file);

/// The same of the file that the arguments name, which they hold then in its place.
void TakeValues(KSetupArguments& arguments);

/// Hands out what was read: what the kit declares to the arguments (givenValues), all else to the command line, as
/// options of the configuration (AddOptions). In a kit that declares nothing, section [values] is as any other.
///
/// Throws   KSetupFailure with ExitCode::usage for a value that the kit does not know or that cannot be one
void UseValues(KSetupArguments& arguments, const std::vector<KDeclaredValue>& declared);

/// The options of such a text, in their order.
///
/// Throws   KSetupFailure with ExitCode::usage for a line that is no section, option or comment, or that a
///          profile could not hold; with the name of the file and the line's number, not its text
std::vector<KAddedOption> ParseValues(std::string_view text, const std::string& nameForErrors);

} // namespace KSETUP
