// SPDX-License-Identifier: MIT
#pragma once

#include "../../support/Processes.h"
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <chrono>
#include <string>
#include <vector>

#include <sys/types.h>

namespace KTEST {

using Clock = std::chrono::steady_clock;

constexpr unsigned longTime = 60000; ///< milliseconds, longer than any of these tests takes

std::chrono::milliseconds TimeOf(const boost::function<void()>& action);

/// Makes the kernel refuse a system call from now on, on this thread and for what it starts, with
/// `errorNumber`; with 0 the call seems to succeed and does nothing. For good: use it in InChild.
void RefuseCall(long number, int errorNumber);
/// As above: no further thread, but still processes.
void RefuseThreads();

/// A test with processes of its own. What they leave behind becomes this process's child, and is a
/// failure.
class ProcessTest : public testing::Test {
  protected:
    void TearDown() override;

    /// Copies a program under a name that nothing else on the machine has: `name` and a number.
    ///
    /// Returns  its path
    std::string GivenProgram(const std::string& name, const std::string& original = "/bin/sleep");
    /// Starts a program with its name as argument 0, which runs when the call returns.
    pid_t Start(const std::string& path, const std::vector<std::string>& arguments = {"1000"});
    pid_t StartAs(
        const std::string& path, const std::string& calledAs, std::vector<std::string> arguments
    );
    /// Starts a program that ignores SIGTERM.
    pid_t StartIgnoring(const std::string& path);
    /// How a started process ended: its exit status, or 128 and the signal; waits for its end.
    int EndOf(pid_t process);
    /// EndOf for one that is still to be ended.
    void End(pid_t process);

    const HangGuard guard;
    TemporaryTree tree;
    const LeftBehind leftBehind;

  private:
    std::vector<pid_t> started;
};

/// The file name of a path.
std::string NameOf(const std::string& path);

} // namespace KTEST
