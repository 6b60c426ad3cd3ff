// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace KSETUP {

/// The error for a word that no command takes, with the command or option that may have been meant.
/// `app` has tried to parse it.
CLI::ParseError UnexpectedWord(const CLI::App& app, const std::string& word);

/// Prints what "help" tells of a command, or of a finding of "check".
///
/// Throws   CLI::ParseError for what there is no help of
void PrintHelp(const CLI::App& app, const std::vector<std::string>& words);

} // namespace KSETUP
