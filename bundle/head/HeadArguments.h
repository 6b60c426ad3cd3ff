// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <bundle/UnpackBundle.h>

namespace KBUNDLE {

/// What a bundle is asked for: its own few options come first, the rest is ins-setup's.
struct KHeadArguments {
    enum class Task : std::uint8_t { Run, List, Extract, Verify };

    Task task = Task::Run;
    std::string directory;          ///< where to extract to
    std::string work;               ///< where to unpack to for a run; empty to look for a place
    std::vector<std::string> words; ///< of ins-setup; its command is the first of them
    std::string mistake;            ///< empty when all was understood
};

KHeadArguments ReadHeadArguments(const std::vector<std::string>& words);

/// How much of the kit a command of ins-setup looks at.
BundlePart PartFor(const std::vector<std::string>& words);

/// Where a command line has the product installed, as far as that can be told without knowing all of
/// its options; empty if not.
std::string PlaceIn(const std::vector<std::string>& words);

/// Whether they are about a directory tree that is to be a system: what goes where is said of that.
bool WorksInTree(const std::vector<std::string>& words);

/// What is told of the bundle's own options, behind the help of ins-setup.
bool AsksForHelp(const std::vector<std::string>& words);

} // namespace KBUNDLE
