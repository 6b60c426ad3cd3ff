// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/rules/KRuleMaker.h>
#include <setup/run/KCheckedRun.h>
#include <setup/run/KCommandOutput.h>
#include <setup/run/KRunBackup.h>
#include <setup/run/KRunWatch.h>
#include <setup/state/KRunState.h>
#include <setup/state/KWriteJournal.h>
#include <setup/text/KText.h>
#include <sup++/KError.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace KSETUP {

/// A run that has begun: step five, and the last. It keeps what it is about to replace, where that
/// was asked for, and remembers on the disk that it goes on, until it has come to its end.
///
/// Thread   the main thread's; the engine has one of its own
class KRun {
  public:
    /// Begins it. `whenCopied` is called on the engine's thread when the last rule was done, while all
    /// that is behind it still comes: the flush, the record.
    ///
    /// Throws   KSetupFailure or KSetupStop when no rule was run; the report's log end may then say
    ///          more
    explicit KRun(KCheckedRun&& checkedRun, std::function<void()> whenCopied = {});
    KRun(const KRun&) = delete;
    KRun& operator=(const KRun&) = delete;

    /// Watches it to its end, settles what the machine knows of the product, and fills the report.
    void Finish();

    const KPlannedRun& GetPlanned() const noexcept { return checked.GetPlanned(); }
    /// What was installed, of a run that is done.
    const KManifest& GetManifest() const noexcept { return installed; }

  private:
    bool GoesOn() const noexcept;
    void RequireSealed(const KINS::KRunEvent& event);
    void OpenJournal();
    void CloseJournal();
    void OpenLogs();
    void Remember();
    void DeleteHalfWritten() const;
    void StartRules();
    void Settle();
    void SettleInstall();
    void SettleRemoval();
    void RefuseLinkThatStays();
    void NoteWhatMayGo();
    void BeginManifest();
    KManifest LookAtMade();
    KManifest MakeManifest();
    void TellLostOwners(const KManifest& manifest);
    void CleanUp();
    void FillChanges();
    void TellWhatResisted();
    void NameRun();
    void AddPlannedToGo(std::set<std::string>& left) const;
    std::vector<std::string> FindLeft() const;
    void Forget();
    void FillError(const KSUP::KError& error);
    void FillStopped();
    void FillService(const KWatchedRule& rule);
    void FillWork();
    bool IsRolledBack();
    bool WasBegun() const;
    KText DescribeWhatStays() const;
    void FillLogEnd() const;
    void FillNotes();

    bool MayStartPrograms(unsigned number) const;
    bool IsLastDone(const KINS::KRunEvent& event) const;

    KCheckedRun checked;
    const std::function<void()> afterLast;
    const KRunContext& context;
    KRunReport& report;
    KCommandOutput commandOutput;
    KRunBackup backup;                // of what the run replaces
    std::optional<KRunState> state;   // as the next
    std::vector<std::string> toFlush; // once all is done: where something may have been deleted
    KRunChanges changes;              // as its rules tell them
    std::atomic<unsigned> copiedCount = 0;
    std::chrono::system_clock::time_point begun; // the first rule
    std::chrono::steady_clock::time_point begunAt;
    KServiceOverrides services; // of an upgrade
    bool isSealBroken = false;  // set by the run's thread, read when it has ended
    KRuleMaker ruleMaker;
    std::map<std::string, std::string> edited; // configuration, and what it was installed as
    KManifest installed;                       // once the run is settled
    std::unique_ptr<KWriteJournal> journal;    // there once the run is remembered
    std::future<KManifest> madeByRules;        // by the rules; set by the run's thread
    std::unique_ptr<KRunWatch> watch;
    KINS::KInstaller installer; // last: its run uses the rest
};

} // namespace KSETUP
