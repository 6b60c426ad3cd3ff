// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KSETUP {

/// A word of a command line, as the shell hands it to a program.
struct KCommandWord {
    std::string text; ///< without its quotes
    /// Whether the shell would put something in the place of a part: a variable, a command's
    /// output, the names that a pattern matches.
    bool isExpanded = false;
};

/// The words of a shell's command line. What separates commands, as ";" and "|", ends a word and is
/// none.
std::vector<KCommandWord> WordsOf(const std::string& command);

} // namespace KSETUP
