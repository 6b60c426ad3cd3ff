// SPDX-License-Identifier: MIT
#pragma once

#include <setup/state/KOwnership.h>
#include <setup/text/KText.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace KSETUP {

/// What a run may do to what stands there already, by who owns it: decided in one place for the plan,
/// which tells it before, and for the rules, which do it.
///
/// Borrows the ownership. Paths may be written in any way; the disk is read at the call.
///
/// Threads  one at a time
class KChangePolicy {
  public:
    struct Options {
        bool purges = false;          ///< a removal does all that the script says
        bool allowsConflicts = false; ///< what is not the product's may be replaced and deleted
        bool replacesConfiguration = false; ///< also an edited one
    };
    KChangePolicy(const KOwnership& whoOwns, const std::string& productPath, Options given);
    /// Everything may be changed: for the machine that a check of a kit imagines.
    KChangePolicy();

    const KOwnership& GetOwnership() const noexcept { return *ownership; }
    bool Purges() const noexcept { return options.purges; }

    /// How a rule that copies has its target taken.
    enum class Treatment : std::uint8_t {
        ByPlace,       ///< below the product's config/ or /etc it is a configuration
        Configuration, ///< wherever it is
        Program,       ///< never
    };
    bool IsConfiguration(const std::string& path, Treatment treatment = Treatment::ByPlace) const;

    enum class Copy : std::uint8_t {
        Write, ///< the target gets the kit's file
        Keep,  ///< the administrator's stays: the kit has nothing newer for it
        Offer, ///< it stays, and the kit's new one is put beside it: OfferedPath
    };
    /// What a copy does to a target at which something stands; `source` is the file with the kit's
    /// bytes.
    Copy
    DecideCopy(const std::string& source, const std::string& target, Treatment treatment) const;
    /// Where a new configuration lies beside an edited one.
    static std::string OfferedPath(const std::string& target) { return target + offeredEnding; }
    /// Whether it may be such a one.
    static bool IsOfferedPath(const std::string& path) { return path.ends_with(offeredEnding); }

    /// Why what stands at the path must not be replaced: whose it is, in words. Empty when it may.
    /// `source` is the file that takes its place; one with the same bytes is no loss.
    KText WhyNotReplace(const std::string& path, const std::string& source = {}) const;

    enum class Named : std::uint8_t {
        ByScript, ///< the script names this very file
        BySweep,  ///< it is in a directory that is emptied, or matches a pattern
    };
    /// Whether a rule deletes it; if not, it stays.
    bool MayDelete(const std::string& path, Named named) const;
    /// Why a run that would delete it is refused: another product's. Empty when it is not.
    KText WhyNotDelete(const std::string& path) const;
    /// Why a file stays that a profile lists to be deleted, perhaps because others than root wrote it
    /// there: it has ".." in it, or is neither the product's nor in its directory. Empty when it goes,
    /// or there is none. It counts from "/".
    KText WhyNotDeleteListed(const std::string& path) const;
    /// Whether the path is a configuration that is not as it was installed.
    bool IsEdited(const std::string& path) const;
    /// Whether the bytes at the path are not the product's: of an edited file, and of one that was
    /// there before the product. Asked of the disk once, so that what a run does to the file is no
    /// edit: a plan asks before.
    bool IsAdministrators(const std::string& path) const;
    /// The files of which that was the answer.
    std::vector<std::string> GetAdministrators() const;
    /// The files of which it was the answer because they could not be read, and errno: they are asked
    /// about anew each time.
    const std::map<std::string, unsigned>& GetUnread() const noexcept { return unread; }

    /// Whether what the product owned and no rule made or deleted goes at the end of a run. Of a
    /// removal only what can be had again: what is as it was installed, and no configuration.
    bool IsRubbish(const std::string& path, const KManifestEntry& entry, bool installs) const;

    /// What has to go so that something of another kind can take the path: of a file or link of the
    /// product's itself, of a directory all below it, the deepest first, the path last. Nothing where
    /// something of it is not the product's, and stays.
    std::optional<std::vector<std::string>> FindWhatGivesWay(const std::string& path) const;

  private:
    static constexpr const char* offeredEnding = ".new";

    const KOwnership* ownership;
    std::string productDirectory; // empty on the machine that a check imagines
    std::string configDirectory;  // of the product
    Options options;
    mutable std::unordered_map<std::string, bool> administrators; // by normal path
    mutable std::map<std::string, unsigned> unread;               // likewise
};

} // namespace KSETUP
