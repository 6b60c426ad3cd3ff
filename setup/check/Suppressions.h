// SPDX-License-Identifier: MIT
#pragma once

#include <setup/check/KFinding.h>
#include <setup/script/KScript.h>

#include <set>
#include <string>
#include <utility>
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

/// What a script allows, to be asked for each of many findings.
class KAllowedWarnings {
  public:
    explicit KAllowedWarnings(const KScript& script);

    /// Whether a comment is for this finding. Errors cannot be allowed.
    bool Has(const KFinding& finding) const;

  private:
    std::set<std::pair<unsigned, std::string>> allowed; // the comment's line and the name
};

} // namespace KSETUP
