// SPDX-License-Identifier: MIT
#pragma once

#include <setup/check/KFinding.h>
#include <setup/script/KScript.h>

#include <string>
#include <vector>

namespace KSETUP {

/// What an author lets pass: a comment "; check: allow NAME…" in the line before the one that has
/// the warning.
struct KSuppression {
    unsigned line = 0;   ///< of the comment
    unsigned column = 1; ///< of the name, in bytes
    std::string name;    ///< of a check; empty for a comment that names none
};

/// All of a script, a name each, in the order of the file.
std::vector<KSuppression> ReadSuppressions(const KScript& script);

/// Whether one of them is for this finding. Errors cannot be allowed.
bool IsAllowed(const KFinding& finding, const std::vector<KSuppression>& suppressions);

} // namespace KSETUP
