// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace KSETUP {

/// What the program says of itself, in the language of who reads it. tools/texts collects the texts from
/// calls of this function.
std::string Help(const char* english);

/// Gives the program's help the library's own words in that language, and what stands below it. Before
/// there are commands, which take it over.
void UseLanguage(CLI::App& app);

/// Prints what "help" tells of a command, or of a finding of "check".
///
/// Throws   KUsageError for what there is no help of
void PrintHelp(const CLI::App& app, const std::vector<std::string>& words);

} // namespace KSETUP
