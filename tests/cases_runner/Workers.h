// SPDX-License-Identifier: MIT
#pragma once

#include "Verdict.h"

#include <functional>
#include <string>
#include <vector>

namespace KTEST {

/// A case to be tried.
struct Work {
    std::string name;
    bool needsWorld = false; ///< to be done by the first of its processes, see ForkIntoWorld
    std::function<Verdict()> attempt;
};

/// Tries all of them, each in a process of its own, so many at a time. One that raises an
/// exception, dies or takes longer than two minutes has failed.
///
/// Lifetime `tell` is called during this call only, once for each, in their order
/// Throws   std::system_error
void DoAll(
    const std::vector<Work>& works,
    unsigned jobs,
    const std::function<void(const std::string&, const Verdict&)>& tell
);

} // namespace KTEST
