// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KAddedTree.h>
#include <setup/text/KText.h>

#include <string>
#include <vector>

namespace KSETUP {

/// Takes a tree into a kit: copies its files to payload/NAME and writes the rules that install them
/// below the product path. A tree of the same name that was added before is replaced.
///
/// Returns  what the reader should know, as sentences
/// Throws   KSetupFailure with the kit as it was
std::vector<KText>
AddTree(const KAddedTree& tree, const std::string& kitDirectory, const std::string& scriptPath);

} // namespace KSETUP
