// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KCopyDigests.h>
#include <setup/files/KReadAhead.h>
#include <setup/rules/KFileSharing.h>
#include <setup/run/KPlannedRun.h>
#include <setup/text/KText.h>

#include <memory>
#include <string>

namespace KSETUP {

/// A planned run of which nothing is known that would end it half-way, and to which whoever sits
/// there agreed. Step four: KRun takes it. Until here nothing was changed.
///
/// Thread   the main thread's
class KCheckedRun {
  public:
    /// Throws   KSetupFailure for what would fail, KSetupStop for a signal or a "no"
    explicit KCheckedRun(KPlannedRun&& planned);

    const KPlannedRun& GetPlanned() const noexcept { return planned; }
    const KRunContext& GetContext() const noexcept { return planned.GetContext(); }
    /// Where the run's commands write, beside the setup log.
    const std::string& GetCommandLog() const noexcept { return commandLog; }
    /// What is told of each copy.
    KCopyDigests& GetCopies() noexcept { return *copies; }
    const KCopyDigests& GetCopies() const noexcept { return *copies; }
    KReadAhead& GetReadAhead() noexcept { return *readAhead; }
    /// What need not be copied.
    KFileSharing& GetSharing() noexcept { return *sharing; }

  private:
    void RequireScript() const;
    void RequirePlaceOfRoots() const;
    void RunPreflight() const;
    void FindLogs();
    void TellOwnership() const;
    KText DescribeWhatGoesBesides() const;
    void AskBeforeRemoval() const;

    KPlannedRun planned;
    std::unique_ptr<KCopyDigests> copies;
    std::unique_ptr<KReadAhead> readAhead;
    std::unique_ptr<KFileSharing> sharing;
    std::string commandLog;
};

} // namespace KSETUP
