// SPDX-License-Identifier: MIT
#pragma once

#include <ins/Export.h>
#include <ins/KInstallRuleManager.h>
#include <ins/unx/lin/KInstallPathManager.h>
#include <sup++/KBase.h>
#include <sup++/KLog.h>
#include <sup++/KProfile.h>
#include <sup++/KString.h>
#include <sup++/KThread.h>

#include <atomic>
#include <cstdint>
#include <vector>

/// The installer engine: what runs install scripts, and the rules that they are made of.
namespace KINS {

/// What a run does. Values 4 and 5 are install modes for callers of Start; the engine treats them
/// as 1.
enum MODE : std::uint32_t {
    ModeNone = 0,
    ModeInstall = 1,
    ModeUpgrade = 2,   ///< install over an installed product
    ModeUninstall = 3, ///< removal
    ModeInstall4 = 4,
    ModeInstall5 = 5,
};

/// Installs or removes the product that an install script describes. It serves one run: construct,
/// SetCallback, Initialize, Start (or one of its front ends), poll IsComplete, destroy.
///
/// Owns the script, the setup log, both managers and the worker thread. Its destructor requests no
/// stop of its own: stop the run and poll until it has ended; a run that is still alive is then
/// requested to stop and waited for by the thread object, while everything that it uses still
/// lives.
///
/// Thread   all calls come from one thread, save the getters and Stop, which any thread may call at
///          any time; the callback runs on the worker thread
///
///     KINS::KInstaller installer;
///     installer.SetCallback(show);
///     installer.Initialize("/kit/install.ini");
///     installer.AutoInstall();
class INS_EXPORT KInstaller : public KSUP::KBase {
  public:
    KInstaller();
    ~KInstaller() override;
    KInstaller(const KInstaller&) = delete;
    KInstaller& operator=(const KInstaller&) = delete;

    /// An empty function means no callback. Before Start.
    void SetCallback(StatusCallback callback);
    /// Rule types of the program's own: the factory is asked first for each line of the script, so it
    /// may know keywords that the engine does not, or refine rules of those that it does. Its rules
    /// run in this installer's run, with its thread, log, record and cancellation. Before Start.
    void SetRuleFactory(RuleFactory factory);
    /// Everything that a run tells, in one order (KRunEvent.h). Before Start.
    void SetRunListener(RunListener listener);

    /// Loads the messages, opens the setup log (GetSetupLogPath) and the script, and points the path table at the installed product if there is one. Once, before
    /// Start.
    ///
    /// Throws   KSUP::KError 99 unless the caller is root (nothing was touched), the status of the
    ///          messages, errno for a log or script that cannot be opened
    void Initialize(const KSUP::KString& scriptPath);

    /// Loads the script's section for the mode and starts the worker thread. An empty path means
    /// the default product path, as the script holds it.
    ///
    /// Throws   KSUP::KError 36 for a mode that is none (GetMode then tells it); what loading
    ///          throws. No thread runs then
    void Start(const KSUP::KString& productPath, MODE runMode);
    /// Start in mode 1, or 2 when a product is installed. Throws KSUP::KError 36 for an empty path.
    void StartInstall(const KSUP::KString& productPath);
    /// Start in mode 3. Throws KSUP::KError 36 for an empty path.
    void StartUninstall(const KSUP::KString& productPath);

    /// Installs over the installed product, or to the default path, and returns when the run is
    /// over.
    ///
    /// Throws   what ended the run
    void AutoInstall();
    /// Removes the installed product, if there is one, and returns when the run is over.
    ///
    /// Throws   what ended the run
    void AutoUninstall();

    /// What a rule said last, with " (43%)" behind it if it had a percentage; empty before.
    KSUP::KString GetStatus() const;
    /// The path that the rule at work, or the last one that was, works on; empty without one.
    KSUP::KString GetCurrentTarget() const;
    /// How many rules of this run count (KInstallRuleBase::ShouldCount); 0 before they are loaded.
    unsigned int GetMaxCount() const;
    /// How many of GetMaxCount are done; a rule that failed is not.
    unsigned int GetCompletedCount() const;
    /// What the last Start was asked for; ModeNone before it.
    MODE GetMode() const noexcept;
    /// True once Stop was called.
    bool IsCancelled() const noexcept;
    /// False while the run goes on, true after it.
    ///
    /// Throws   what ended the run, each time it is asked
    bool IsComplete();

    /// Asks the run to stop, also before Start; returns at once. It takes effect before the next
    /// rule, and within 64 KiB of a copy.
    void Stop();

    /// Whether there is a record, as GetInstalledProductInformation finds it. It raises nothing, so
    /// it leaves no trace either.
    bool IsProductInstalled() const;
    /// Throws   KSUP::KError when there is no record
    void GetInstalledProductInformation(
        KSUP::KString& path, KSUP::KString& version, unsigned int& buildNumber
    ) const;
    /// Throws   KSUP::KError when there is no record
    KSUP::KString GetInstalledProductPath() const;
    /// The path that is proposed for a first install, macros expanded.
    KSUP::KString GetDefaultProductPath() const;
    /// Expands every known macro (KSUP::KCustomMacro).
    KSUP::KString ExpandMacros(const KSUP::KString& text) const;
    /// The names of all macros that a script can use, without dollars, sorted. Some are known only at
    /// times, targetVerInfo for instance; custom keys (SvcSetCustomKey) are not among them.
    static std::vector<KSUP::KString> GetMacroNames();
    /// Where Initialize opens the setup log.
    KSUP::KString GetSetupLogPath() const;
    /// The script; a copy with an enumeration of its own, empty before Initialize.
    KSUP::KProfile GetInstallProfile() const;
    /// The setup log, open from Initialize on. Entries of one's own may be added from any thread.
    KSUP::KLog& GetLog() noexcept;

    /// What the worker thread runs in the install modes: all rules, then the record. Not to be
    /// called by others.
    void InstallThread();

  private:
    KSUP::KString LogName() const;
    void OpenScript(const KSUP::KString& scriptPath);
    void AdoptInstalledProduct();
    void WaitForEnd();

    // In front, where it takes no room: the size of this class is part of the binary interface.
    std::atomic<bool> messagesAreLoaded{false};
    std::atomic<MODE> mode{ModeNone}; // asked for by any thread
    KSUP::KProfile installProfile;    // assigned and copied under a lock of the source's own
    KSUP::KLog log;
    KInstallRuleManager ruleManager;
    KInstallPathManager pathManager;
    KSUP::KThread workerThread; // last: it is joined while everything it uses lives
};

} // namespace KINS

/// Loads the engine's messages, catalogue 44 with the base name "xxxins". Returns 0 or a status.
INS_EXPORT unsigned PrvInsLoadMessage() noexcept;
/// Takes back one load.
INS_EXPORT void PrvInsUnloadMessage() noexcept;
