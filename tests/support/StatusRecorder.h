// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallRuleManagerBase.h>

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace KTEST {

/// Keeps every status that a run reports, in order, and does something of the test's own at one of
/// them. It must outlive the run.
///
/// Thread   any
///
///     StatusRecorder statuses;
///     statuses.At(3, [&] { installer.Stop(); });
///     installer.SetCallback(statuses.Callback());
class StatusRecorder {
  public:
    struct Status {
        std::string text;
        double value;

        friend bool operator==(const Status&, const Status&) = default;
    };

    KINS::StatusCallback Callback();

    /// Does `action` inside the callback of the status with this number, counted from 1, after it was
    /// recorded. What it throws leaves the callback.
    void At(std::size_t number, std::function<void()> action);

    std::vector<Status> All() const;
    /// Each status as one line: "32.768 Copying file a", or "- Copying file /t/a" without a
    /// percentage. Six digits, as streams write them.
    std::vector<std::string> Lines() const;
    /// The threads that called, each once, in the order in which they first did.
    std::vector<std::thread::id> Threads() const;

  private:
    void Record(const KSUP::KString& text, double value);

    mutable std::mutex guard;
    std::vector<Status> statuses;                         // guarded by guard
    std::vector<std::thread::id> threads;                 // guarded by guard
    std::map<std::size_t, std::function<void()>> actions; // guarded by guard
};

/// For the messages of failing tests.
void PrintTo(const StatusRecorder::Status& status, std::ostream* out);

} // namespace KTEST
