// SPDX-License-Identifier: MIT
#pragma once

#include <setup/state/KPrivateDirectory.h>
#include <setup/state/KRunLock.h>
#include <setup/state/StateDirectory.h>
#include <setup/text/KText.h>

#include <cstdint>
#include <optional>
#include <string>

namespace KSETUP {

/// A run as it stands in the state file.
struct KRunDescription {
    enum class Action { Install, Remove, Restore };
    Action action = Action::Install;
    std::string product; ///< its name, such as "DPS"
    std::string version;
    unsigned buildNumber = 0;
    std::string path; ///< of the product
    unsigned ruleCount = 0;
    std::string run;      ///< its name (RunId.h); empty for one of a version that gave none
    std::string services; ///< that were at rest before it, as KServiceOverrides writes them
    /// By which files are known that it had begun to write (KSYS::TemporaryKey); 0 when it is not.
    std::uint32_t temporaries = 0;
};

/// A run that began and did not come to its end: it failed, was stopped, killed, or the machine
/// went down.
struct KInterruptedRun : KRunDescription {
    unsigned rule = 0; ///< the last one that was begun, from 1; 0 for none
    KText damage;      ///< why the file cannot be understood: nothing else is known then

    /// "installing DPS 2.2 in /opt/dps was interrupted at rule 14 of 40. Run \"ins-setup install\"
    /// again to go on."
    KText ToWords() const;
};

/// Remembers on the disk that a run goes on, so that the next one, and `status`, know of one that
/// did not end: the file BASE/NAME/state. Its first line is the number of the rule, ten digits, its
/// second a JSON object that describes the run.
///
/// An object that ends leaves the file: only End says that the run is over.
///
/// Threads  SetRule on any one thread between Begin and End; the rest on one thread
///
///     KRunState state("dps");
///     state.Begin(description);  // before the first change
///     state.SetRule(1);          // and so on
///     state.End();               // the record is written
class KRunState {
  public:
    inline static constexpr const char* fileName = "state"; ///< in the product's directory

    /// Throws   KSetupFailure when the directory cannot be made or is not ours alone
    explicit KRunState(
        const std::string& serviceName, const std::string& base = stateBaseDirectory
    );

    /// Brings the file to the disk, with the temporary key of this process.
    ///
    /// Throws   KSetupFailure, a former file being there still
    void Begin(const KRunDescription& run);
    /// Cheap: a few bytes, and only when the number is another one. They are not flushed, so that a
    /// machine that goes down may tell of an earlier rule; a killed program does not.
    void SetRule(unsigned number) noexcept;
    /// Takes the file away, on the disk too.
    ///
    /// Throws   KSetupFailure, the file being there still
    void End();

    /// The run that was interrupted; nothing without one, or while another process holds the
    /// product's lock and so is still at it. A file that cannot be understood is one with `damage`:
    /// it must not hold up the run that writes it anew.
    ///
    /// Throws   KSetupFailure: ExitCode::notRoot for a user who may not look
    static std::optional<KInterruptedRun> Read(
        const std::string& serviceName,
        const std::string& base = stateBaseDirectory,
        const KSYS::LockPlaces& locks = KSYS::LockPlaces::Of(0)
    );

  private:
    KPrivateDirectory directory;
    KSYS::KDescriptor file;
    unsigned rule = 0;
};

} // namespace KSETUP
