// SPDX-License-Identifier: MIT
#pragma once

#include "ProcessFixture.h"

#include <sup++/KShellCommand.h>
#include <sup++/SvcDispatch.h>
#include <sup++/SvcProcess.h>

#include <csignal>
#include <stdexcept>
#include <string>

namespace KTEST {

/// A subshell that SIGTERM does not end; once that is so, it writes its process id.
inline constexpr const char* deafChild = "(trap '' TERM; sh -c 'echo $PPID'; exec sleep 1000)";

/// Commands whose output goes to "output" in the temporary tree.
class KShellCommandFixture : public ProcessTest {
  protected:
    KShellCommandFixture() { SetOutput(tree.Path("output").c_str()); }
    ~KShellCommandFixture() override { SetOutput(nullptr); }

    static void SetOutput(const char* path) {
        if (SvcSetCommandOutput(path) != 0) {
            throw std::runtime_error("SvcSetCommandOutput failed");
        }
    }
    static void WaitForEnd(const KSUP::KThread& command) {
        while (command.IsThreadActive()) {
            SvcPollingDispatch();
        }
    }
    static void Run(const std::string& text) {
        KSUP::KShellCommand command;
        command.Execute(text);
        WaitForEnd(command);
    }
    std::string Output() const { return tree.Exists("output") ? tree.Read("output") : ""; }
    /// What one command writes.
    std::string OutputOf(const std::string& text) {
        tree.Remove("output");
        Run(text);
        return Output();
    }
    /// Starts one that writes a line when it is so far, and waits for the line.
    void ExecuteUntilReady(KSUP::KShellCommand& command, const std::string& text) const {
        command.Execute(text);
        WaitUntil([&] { return !Output().empty() && Output().back() == '\n'; });
    }
    /// The number on a line of the output, counted from 0.
    pid_t OutputNumber(int line = 0) const {
        const std::string text = Output();
        std::size_t at = 0;
        for (; line > 0; --line) {
            at = text.find('\n', at) + 1;
        }
        return std::stoi(text.substr(at));
    }
};

} // namespace KTEST
