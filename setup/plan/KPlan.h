// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlannedTree.h>
#include <setup/script/KScript.h>

#include <cstdint>
#include <string>
#include <vector>

namespace KSETUP {

/// What a rule would do to one thing.
struct KPlannedAction {
    enum class Kind : std::uint8_t {
        CreateDirectory,
        DeleteDirectory,
        CopyFile,
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
    };
    Kind kind = Kind::CopyFile;
    std::string path;   ///< of what changes; a service's name; a command
    std::string source; ///< what is copied; where a link leads; "[section] key=value" of an option
    std::uint64_t bytes = 0;
    unsigned mode = 0;
    bool replaces = false; ///< something stands at the path
    /// What it needs is not there: the source of a copy, the file that is to be deleted. Whether
    /// that ends the run is the rule's affair.
    bool lacks = false;
    bool lacksDirectory = false; ///< what would be made has no directory to be made in
    std::string obstacle;        ///< why the rule would end the run here; empty when not

    /// Whether it makes, changes or deletes a directory entry, rather than a process or a service.
    bool IsOfEntry() const noexcept;
};

/// What becomes of services that are to be started and stopped.
enum class KServiceFate : std::uint8_t {
    Managed, ///< systemd does it
    Offline, ///< it is left for the next boot, if the service is there
};

struct KPlannedRule {
    KScriptRule rule;
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
        KServiceFate fate = KServiceFate::Managed
    );

    const std::vector<KPlannedRule>& GetRules() const noexcept { return rules; }
    const std::vector<KScriptCycle>& GetCycles() const noexcept { return cycles; }

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
    /// A run writes to some directories whatever its rules do: `alsoWritten`.
    std::vector<Space> ReadSpace(const std::vector<std::string>& alsoWritten = {}) const;

    /// The files that are replaced or deleted, by their normal paths, one as often as rules do it.
    std::vector<std::string> FindFilesThatGo() const;

  private:
    std::vector<KPlannedRule> rules;
    std::vector<KScriptCycle> cycles;
};

/// The word for a kind of action, as "create directory".
const char* ActionWord(KPlannedAction::Kind kind) noexcept;

} // namespace KSETUP
