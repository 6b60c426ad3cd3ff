// SPDX-License-Identifier: MIT
#pragma once

#include "StatusRecorder.h"
#include "TemporaryTree.h"
#include "TraceRecorder.h"

#include <ins/KInstaller.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace KTEST {

/// The name of the service whose record no machine has.
inline constexpr const char* unitService = "inspp-unit-test";

/// Points everything that the process shares (directories 2 and 19 of the path map, product data,
/// command line) into a temporary tree, and takes it back to neutral values at the end.
class EngineWorld {
  public:
    explicit EngineWorld(TemporaryTree& tree);
    ~EngineWorld();
    EngineWorld(const EngineWorld&) = delete;
    EngineWorld& operator=(const EngineWorld&) = delete;

    /// The command line behind the program's name.
    static void GivenArguments(const std::vector<std::string>& arguments);
    /// A key of the program's own, a macro from now on.
    static void GivenKey(const std::string& name, const std::string& value);
};

/// A temporary tree with an installer whose logs, kit and product lie in it. The installer is made
/// but not initialised; the kit's directory is "kit", the logs' is "log".
class EngineTest : public ::testing::Test {
  protected:
    EngineTest();
    ~EngineTest() override;

    /// Writes the install script; "@T@" stands for the tree's path.
    void GivenScript(std::string_view script);
    /// A text with the tree's path for each "@T@".
    std::string InTree(std::string_view text) const;
    /// Initialises the installer with the script given last. Needs root, as a real run does.
    void Initialize();
    /// The setup log's entries without their times.
    std::vector<std::string> LogLines() const;
    /// The texts behind "Adding rule -> " and "Executing rule -> ".
    std::vector<std::string> Added() const;
    std::vector<std::string> Executed() const;
    std::string LogPath() const;
    /// Polls until the run has ended; a run that does not is ended by the time limit of the test.
    void WaitForEnd();

    TemporaryTree tree;
    EngineWorld world{tree};
    TraceRecorder trace;
    StatusRecorder statuses;
    std::unique_ptr<KINS::KInstaller> installer = std::make_unique<KINS::KInstaller>();
};

/// An installer with a rule manager of the test's own, which runs rules on the test's thread and
/// needs no root: rules are added one by one instead of from a script.
class RuleTest : public EngineTest {
  protected:
    RuleTest();

    void Add(const char* type, std::string_view line);
    /// Adds one rule and runs it alone.
    void Run(const char* type, std::string_view line);
    /// The error with which a rule of this type refuses the line.
    KSUP::KError RefusalOf(const char* type, std::string_view line);
    /// A rule's description, as the log has it when the rule is added.
    std::string DescriptionOf(const char* type, std::string_view line);

    KINS::KInstallRuleManager manager{installer.get()};
};

} // namespace KTEST
