// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KChangePolicy.h>
#include <setup/plan/KPlannedTree.h>
#include <setup/script/KScript.h>
#include <setup/script/KScriptRules.h>
#include <setup/text/KText.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

namespace KSETUP {

/// What a rule would do to one thing.
/// Small: a plan has one for each file of a product.
struct KPlannedAction {
    enum class Kind : std::uint8_t {
        CreateDirectory,
        DeleteDirectory,
        CopyFile,
        KeepFile, ///< what stands at the path stays; the source says why
        DeleteFile,
        MakeLink,
        CreateProfile,
        PutOption,
        RemoveOption,
        StartCommand,
        StopProgram,
        InstallService,
        RemoveService,
        StartService,
        StopService,
        SetMode,
        CreateUser,
        RunCommand,
    };
    Kind kind = Kind::CopyFile;
    bool replaces = false;        ///< something stands at the path
    bool replacesLink = false;    ///< a link does; what it leads to stays as it is
    bool isConfiguration = false; ///< what is copied is for the administrator to edit
    /// What it needs is not there: the source of a copy, the file that is to be deleted. Whether
    /// that ends the run is the rule's affair.
    bool lacks = false;
    bool lacksDirectory = false; ///< what would be made has no directory to be made in
    unsigned mode = 0;
    std::uint64_t bytes = 0;
    /// Of what changes; a service's name; a command. Never null, and valid as long as the plan.
    const std::string* path = &noText;
    /// What is copied; where a link leads; "[section] key=value" of an option; why a file is kept;
    /// "OWNER[:GROUP]" of a mode, empty without; the user's name. As the path.
    const std::string* source = &noText;
    KText whyKept;  ///< the same for people, of a file that is kept
    KText obstacle; ///< why the rule would end the run here; empty when not
    KText conflict; ///< whose the thing is that would go: the run is refused; empty when not

    /// Whether it makes, changes or deletes a directory entry, rather than a process or a service.
    bool IsOfEntry() const noexcept;
};

/// What becomes of services that are to be started and stopped.
enum class KServiceFate : std::uint8_t {
    Managed, ///< systemd does it
    Offline, ///< it is left for the next boot, if the service is there
};

struct KPlannedRule {
    const KScriptRule& rule;             ///< of a section that the plan holds
    std::vector<KPlannedAction> actions; ///< empty for a rule that does nothing
};

/// What the rules of a script's section would do, one after the other, found without doing it.
///
/// Thread   one at a time
class KPlan {
  public:
    /// Rules that the engine would refuse to load plan nothing. `tree` is what they start from, and
    /// holds what they leave.
    KPlan(
        const KScript& script,
        const std::string& section,
        const MacroExpander& expand,
        KPlannedTree& tree,
        const KChangePolicy& policy = KChangePolicy(),
        KServiceFate fate = KServiceFate::Managed
    );

    /// The same with the rules of the script that were read already, which several plans of it may
    /// share.
    KPlan(
        const KScript& script,
        const std::shared_ptr<KScriptRules>& scriptRules,
        const std::string& section,
        KPlannedTree& tree,
        const KChangePolicy& policy = KChangePolicy(),
        KServiceFate fate = KServiceFate::Managed
    );

    const std::vector<KPlannedRule>& GetRules() const noexcept { return rules; }
    const std::vector<KScriptCycle>& GetCycles() const noexcept { return cycles; }
    /// What is done once the rules are: what the product owned, and neither has any more nor is to
    /// be kept, is deleted.
    const std::vector<KPlannedAction>& GetCleanup() const noexcept { return cleanup; }
    /// A text that stays as long as the plan.
    const std::string& Keep(const std::string& text) const { return view->Keep(text); }
    /// Calls `take` with each action, in their order, those of the cleanup last.
    template <class Take>
    void ForEachAction(const Take& take) const {
        for (const KPlannedRule& rule : rules) {
            for (const KPlannedAction& action : rule.actions) {
                take(action);
            }
        }
        for (const KPlannedAction& action : cleanup) {
            take(action);
        }
    }

    /// Bytes and files needed and free on a file system that files go to.
    struct Space {
        /// What the log, the record and the state of a run may take on top.
        static constexpr std::uint64_t spareBytes = 8ULL << 20U;
        static constexpr std::uint64_t spareFiles = 16;

        std::string directory; ///< of the file system that exists already
        std::uint64_t needed = 0;
        std::uint64_t available = 0; ///< for root
        std::uint64_t filesNeeded = 0;
        std::uint64_t filesAvailable = 0; ///< 0 with unlimited ones
        bool filesAreUnlimited = false;

        bool HasBytes() const noexcept { return needed + spareBytes <= available; }
        bool HasFiles() const noexcept {
            return filesAreUnlimited || filesNeeded + spareFiles <= filesAvailable;
        }
        bool HasRoom() const noexcept { return HasBytes() && HasFiles(); }
    };
    /// Asked of the disk at the call. A file that is replaced needs its room beside the former one,
    /// which may be in use.
    /// A run writes to some directories whatever its rules do: `alsoWritten`. `isThere` tells of a file
    /// that it takes no room, as it has it already; by its normal path.
    std::vector<Space> ReadSpace(
        const std::vector<std::string>& alsoWritten = {},
        const std::function<bool(const std::string& path)>& isThere = {}
    ) const;

    /// What cannot be changed, because of an attribute that the disk says of it.
    struct Protected {
        std::string path;
        KSYS::ProtectingAttribute attribute = KSYS::ProtectingAttribute::None;
    };
    /// What the rules, the cleanup and the record write into, replace or delete, and cannot.
    const std::vector<Protected>& GetProtected() const noexcept { return protectedPaths; }

    /// The services whose unit files are written or deleted; those that others provide are not.
    const std::vector<std::string>& GetChangedUnits() const noexcept { return changedUnits; }

    /// The files that are replaced or deleted, by their normal paths, one as often as rules do it.
    std::vector<std::string> FindFilesThatGo() const;

  private:
    std::unordered_set<std::string> FindWanted(const KChangePolicy& policy) const;
    void PlanCleanup(bool installs, KPlannedTree& tree, const KChangePolicy& policy);
    void NoteChange(const std::string& path, const KPlannedEntry& former);

    std::shared_ptr<const KScriptRules> sections; // of which the rules are
    std::shared_ptr<KDiskView> view;              // which keeps the texts of the actions
    std::vector<KPlannedRule> rules;
    std::vector<KPlannedAction> cleanup;
    std::vector<Protected> protectedPaths;
    std::vector<std::string> changedUnits;
    std::vector<KScriptCycle> cycles;
};

/// Whether an action of this kind makes a directory entry, or changes what it holds.
bool MakesEntry(KPlannedAction::Kind kind) noexcept;
/// The word for a kind of action, as "create directory".
const char* ActionWord(KPlannedAction::Kind kind) noexcept;

} // namespace KSETUP
