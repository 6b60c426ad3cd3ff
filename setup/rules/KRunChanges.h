// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KFileDigest.h>
#include <setup/text/KText.h>

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KSETUP {

class KFileSharing;

/// What the rules of a run did otherwise than their lines say, because of who owns what: filled by
/// the rules, read when the run is over.
///
/// Threads  the run's while it goes on, then the main thread's
struct KRunChanges {
    /// Notes what came of a deletion that the rule goes on without. `failed` is 0 or errno.
    void NoteDeletion(const std::string& path, unsigned failed);

    /// What could not be deleted, by its normal path, and errno. What was gone already, and
    /// directories that hold something, are as they should be.
    std::map<std::string, unsigned> resisted;
    struct Kept {
        std::string path;
        std::string offered; ///< where the kit's newer one lies; empty without one
    };
    std::vector<Kept> configuration;  ///< edited files that stay
    std::vector<std::string> foreign; ///< what a sweep left, as it is not the product's
    struct Listed {
        std::string profile;
        std::string path; ///< as it stands there
        KText why;
    };
    std::vector<Listed> listed; ///< what profiles list to be deleted, and which stays
    /// Links that were replaced themselves, and what they lead to.
    std::vector<std::pair<std::string, std::string>> replacedLinks;
    /// Services that stay as the administrator had them: "stopped", "disabled", "masked".
    std::map<std::string, std::string> keptServices;
    /// Configurations that were copied or kept, with the digest of the kit's file.
    std::map<std::string, std::string> kitDigests;
    /// Files of which the rule that copied them says that they are no configuration.
    std::set<std::string> programs;
    /// What a rule gave its mode and owner, also of what was there before.
    std::set<std::string> rights;
    /// The owners of files that may be replaced, where that is not root: the product's as they were
    /// before the run, and any that a copy replaced.
    std::map<std::string, unsigned> formerOwners;
    /// The names that the plan found for the copy of a pattern, sorted, and whether a command runs
    /// before it, which may take some away.
    ///
    /// Lifetime the names are the plan's
    struct Matches {
        std::string pattern; ///< in its normal form, with its directory
        std::vector<std::string_view> names;
        bool isBehindCommand = false;
    };
    std::deque<Matches> planned; ///< of the copies of patterns that did not run yet, in their order
    /// For files that need not be copied; null where all are.
    ///
    /// Lifetime borrowed, as long as the run
    KFileSharing* sharing = nullptr;
    /// Told of each copy, its source and its target, when it is whole; `known` is its digest where that
    /// was made already. On the run's thread.
    std::function<
        void(const std::string& source, const std::string& target, const KFileDigest& known)>
        copied;
};

} // namespace KSETUP
