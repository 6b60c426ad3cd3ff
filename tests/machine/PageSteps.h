// SPDX-License-Identifier: MIT
#pragma once

#include "../support/TemporaryTree.h"

#include <string>
#include <vector>

namespace KTEST {

/// A command that a page shows, with what it says of it.
struct PageStep {
    std::string page; ///< as "docs/cookbook.md"
    std::string part; ///< the text of the heading "## " above it
    unsigned line;
    std::string command;
    int answers = 0;                ///< its exit code
    std::vector<std::string> shown; ///< parts of what it prints
};

/// The commands of a page: indented lines that begin with "$ ", below them what they print. A comment
/// "# answers N" is the exit code of one that does not answer 0. `page` is its path in the source.
std::vector<PageStep> ReadPageSteps(const std::string& page);

/// Runs the commands one by one, by sh in `work/` of the tree, with the programs of this build, and
/// expects of each what the page says. Ends with the first that does otherwise, by a fatal failure.
void ExpectPageSteps(TemporaryTree& tree, const std::vector<PageStep>& steps);

} // namespace KTEST
