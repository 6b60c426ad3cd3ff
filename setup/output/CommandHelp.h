// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace KSETUP {

/// What the program says of itself, in the language of who reads it. tools/texts collects the texts from
/// calls of this function.
std::string Help(const char* english);

/// Gives the program's help the library's own words in that language, and what stands below it. What the
/// library refuses a command line with stays English. Before there are commands, which take it over.
void UseLanguage(CLI::App& app);

/// The error for a word that no command takes, with the command or option that may have been meant.
/// `app` has tried to parse it.
CLI::ParseError UnexpectedWord(const CLI::App& app, const std::string& word);

/// Prints what "help" tells of a command, or of a finding of "check".
///
/// Throws   CLI::ParseError for what there is no help of
void PrintHelp(const CLI::App& app, const std::vector<std::string>& words);

} // namespace KSETUP
