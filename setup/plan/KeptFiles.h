// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>

#include <set>
#include <string>
#include <vector>

namespace KSETUP {

/// What a removal uses of its kit, besides product.ini and the script.
struct KKeptFiles {
    std::set<std::string> files; ///< regular files, by their paths in the kit
    /// Lines that use the kit in a way from which no file can be told.
    ///
    /// Lifetime  the plan's
    struct Untold {
        const KScriptLine* line;
        std::string text; ///< what names the kit
    };
    std::vector<Untold> untold;
};

/// By the plan of section [remove]: the sources of its copies, the files that its commands and other
/// rules name.
KKeptFiles FindKeptFiles(const KPlan& remove, const std::string& kitDirectory);

} // namespace KSETUP
