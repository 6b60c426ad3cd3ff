// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KSetupArguments.h>
#include <setup/script/KScript.h>

#include <string>
#include <string_view>
#include <vector>

/// \file
/// What a command line adds to the product's configuration: by --addProfileLine, as the engine reads it,
/// and by --values, whose values nobody else gets to see.
namespace KSETUP {

/// Hands options to the engine, in front of the lines of the command line, which so have the last word.
/// They arrive there as they stand, commas and dollar signs too. `words` are that command line. Before
/// there is a second thread.
void AddOptions(const std::vector<KAddedOption>& options, std::vector<std::string> words);

/// Whether a field of a profile rule, expanded once, stands for the value of such an option.
bool IsAddedValue(std::string_view field) noexcept;

/// The values of --addProfileLine, as the engine reads them from the saved command line; the options are
///  among them as macros.
///
/// Throws   KSetupFailure with ExitCode::usage for one that the engine cannot read
std::vector<std::string> ReadAddedLines();

/// A line as it may be told.
struct KAddedLine {
    std::string option; ///< by which it came
    std::string text;   ///< SECTION,KEY,VALUE, with what may be secret masked
};
/// All of them, in their order.
///
/// Throws   as ReadAddedLines
std::vector<KAddedLine> DescribeAddedLines();

/// Of fewer or more than three parts the engine makes a rule that it refuses, or one that writes an
/// option without a name.
///
/// Throws   KSetupFailure with ExitCode::usage for such a value
void RequireAddedLines(const MacroExpander& expand);

} // namespace KSETUP
