// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KProgressRate.h>
#include <setup/output/KProgressView.h>

#include <cstddef>
#include <string>
#include <vector>

namespace KSETUP {

/// How a terminal is to be written to.
struct KTerminalLook {
    std::size_t cells = 79; ///< that a line may take
    bool colour = false;
};

/// What a terminal shows of a run: a bar with what there is room for, and beside it or in a second
/// line the rule at work.
std::vector<std::string>
ProgressLines(const KProgressView& view, const KProgressRate& rate, const KTerminalLook& look);

/// The bar alone, as it stays when the run is over.
std::string
ProgressBar(const KProgressView& view, const KProgressRate& rate, const KTerminalLook& look);

/// As "[4/10] Copying file a", in as many cells.
std::string RuleLine(const KProgressView& view, std::size_t cells);

} // namespace KSETUP
