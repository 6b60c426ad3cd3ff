// SPDX-License-Identifier: MIT
#pragma once

#include "../support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KTEST {

/// The whole file; empty for one that is missing.
std::string Slurp(const std::string& path);
std::string Replaced(std::string text, const std::string& what, const std::string& by);

/// What stands below some directories, a line an entry: kind, mode, owner, path, and the digest of a
/// file or the target of a link. The journal, which others write to at any time, is left out.
std::vector<std::string> MachineTree(const std::vector<std::string>& roots);
/// Everything that a run on the machine can change, save what is in `more`.
std::vector<std::string> WholeMachine(const std::vector<std::string>& more);
/// The lines that only one of two trees has, marked by "-" and "+". Easier to read than both.
std::vector<std::string>
Changes(const std::vector<std::string>& before, const std::vector<std::string>& after);

/// Runs of ins-setup, and a kit of "Setup Test", which goes to "product" below the tree. What the
/// product leaves on the machine is gone after each test.
class SetupProgramTest : public ::testing::Test {
  protected:
    static constexpr const char* product = "[product]\nname=Setup Test\nserviceName=setuptest\n"
                                           "iniFile=st.ini\nversion=1.5\nbuildNumber=9\n";
    static constexpr const char* setupLog = "/var/log/Setup Test Setup Log.txt";
    static constexpr const char* commandOutput = "/var/log/Setup Test Setup Commands.txt";
    static constexpr const char* stateFile = "/var/lib/ins++/setuptest/state";

    struct Outcome {
        int exitCode;
        std::string out;
        std::string err;
    };

    SetupProgramTest();
    ~SetupProgramTest() override;
    /// Takes away what the product leaves on the machine.
    static void Forget();

    /// A script with `more` between the copy and the link.
    void GivenScript(const std::string& more = "");
    static std::string Program();
    /// Runs a shell line in which SETUP is the program and KIT and TREE are these directories;
    /// both outputs are kept apart.
    Outcome Run(const std::string& line);
    Outcome RunSetup(const std::string& action, const std::string& more = "");

    TemporaryTree tree;
};

} // namespace KTEST
