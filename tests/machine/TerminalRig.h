// SPDX-License-Identifier: MIT
#pragma once

#include "../support/TemporaryTree.h"
#include "../support/TerminalScreen.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <sys/types.h>

namespace KTEST {

/// Runs on a terminal of their own, and a kit of "Terminal Test", which goes to "product" below the
/// tree.
class TerminalTest : public ::testing::Test {
  protected:
    TerminalTest();
    ~TerminalTest() override;

    /// Sparse: takes long to copy and no room in the kit.
    void GivenLongCopy();

    static std::string Program();
    /// Starts a command, whose first word is looked for in PATH.
    void StartCommand(
        const std::vector<std::string>& words, unsigned short columns, const char* type = "xterm"
    );
    /// Starts ins-setup with the kit.
    void Start(const std::string& action, unsigned short columns, const char* type = "xterm");
    void Resize(unsigned short columns) const;
    void Press(const std::string& keys) const;
    /// The terminal goes.
    void Close();
    /// Whether the terminal shows what is typed, and takes Ctrl-C for a signal.
    bool IsAsUsual() const;

    /// Reads on until the text has come, behind the one that was read until before, or the program
    /// has ended.
    bool ReadUntil(const std::string& text);
    /// The exit code, or a signal's number below zero.
    int End();
    int RunToEnd();
    /// What stands there after all that came.
    std::vector<std::string> Screen(std::size_t columns) const;

    TemporaryTree tree;
    int terminal = -1;
    pid_t process = -1;
    std::string shown;

  private:
    std::size_t seen = 0; // of shown
};

} // namespace KTEST
