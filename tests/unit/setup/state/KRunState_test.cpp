// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/state/KRunState.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>

#include <sys/wait.h>

namespace {

using KSETUP::KInterruptedRun;
using KSETUP::KRunDescription;
using KSETUP::KRunLock;
using KSETUP::KRunState;

class KRunStateTest : public ::testing::Test {
  protected:
    void SetUp() override { tree.Directory("lock", 0700); }
    static KRunDescription Run() {
        return {KRunDescription::Action::Install, "DPS", "2.2", 37, "/opt/d\xFF", 40, "run 1", ""};
    }
    KSYS::LockPlaces Places() const { return {::geteuid(), {tree.Path("lock")}}; }
    KRunState State() { return KRunState("dps", tree.Path("base")); }
    std::optional<KInterruptedRun> Read() {
        return KRunState::Read("dps", tree.Path("base"), Places());
    }
    void GivenText(const std::string& text) { tree.Write("base/dps/state", text, 0600); }

    KTEST::TemporaryTree tree;
};

TEST_F(KRunStateTest, NothingIsInterruptedAtFirst) {
    EXPECT_FALSE(Read().has_value());
    EXPECT_FALSE(tree.Exists("base"));
}

TEST_F(KRunStateTest, ARunThatDidNotEndIsRemembered) {
    {
        KRunState state = State();
        state.Begin(Run());
        state.SetRule(14);
    }
    const auto run = Read();
    ASSERT_TRUE(run.has_value());
    EXPECT_EQ(run->rule, 14u);
    EXPECT_EQ(run->buildNumber, 37u);
    EXPECT_EQ(run->path, "/opt/d\xFF");
    EXPECT_EQ(run->run, "run 1");
    EXPECT_EQ(run->ruleCount, 40u);
}

TEST_F(KRunStateTest, ARunThatEndedLeavesNothing) {
    KRunState state = State();
    state.Begin(Run());
    state.End();
    EXPECT_FALSE(Read().has_value());
    EXPECT_FALSE(tree.Exists("base/dps/state"));
}

TEST_F(KRunStateTest, ANumberBehindTheEndChangesNothing) {
    KRunState state = State();
    state.Begin(Run());
    state.End();
    state.SetRule(3);
    EXPECT_FALSE(tree.Exists("base/dps/state"));
}

TEST_F(KRunStateTest, ARestorationThatWasInterruptedIsToldAsOne) {
    KRunDescription run = Run();
    run.action = KRunDescription::Action::Restore;
    State().Begin(run);
    EXPECT_EQ(
        Read()->ToWords(),
        "restoring DPS was interrupted. Run \"ins-setup restore\" again to go on."
    );
}

TEST_F(KRunStateTest, TheNextRunReplacesWhatWasRemembered) {
    {
        KRunState state = State();
        state.Begin(Run());
        state.SetRule(14);
    }
    KRunState state = State();
    state.Begin({KRunDescription::Action::Remove, "DPS", "2.2", 37, "/opt/dps", 7, "run 2", ""});
    EXPECT_EQ(Read()->rule, 0u);
    EXPECT_EQ(Read()->ruleCount, 7u);
}

TEST_F(KRunStateTest, ARunThatGoesOnIsNotInterrupted) {
    std::array<int, 2> ready{};
    ASSERT_EQ(::pipe(ready.data()), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const KRunLock lock("dps", 0, {}, Places());
        KRunState state = State();
        state.Begin(Run());
        static_cast<void>(::write(ready[1], "x", 1) == 1);
        for (;;) {
            ::pause();
        }
    }
    ::close(ready[1]);
    char byte = 0;
    EXPECT_EQ(::read(ready[0], &byte, 1), 1);
    EXPECT_FALSE(Read().has_value());
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_TRUE(Read().has_value());
    ::close(ready[0]);
}

TEST_F(KRunStateTest, TheNextRunLearnsOfItUnderItsOwnLock) {
    State().Begin(Run());
    const KRunLock lock("dps", 0, {}, Places());
    EXPECT_TRUE(Read().has_value());
}

TEST_F(KRunStateTest, TheWordsTellHowToGoOn) {
    KInterruptedRun run{Run(), 14, ""};
    run.path = "/opt/dps";
    EXPECT_EQ(
        run.ToWords(),
        "installing DPS 2.2 in /opt/dps was interrupted at rule 14 of 40. Run \"ins-setup "
        "install\" again to go on."
    );
    run.rule = 0;
    run.action = KRunDescription::Action::Remove;
    EXPECT_EQ(
        run.ToWords(),
        "removing DPS 2.2 from /opt/dps was interrupted before the first of its 40 rules. Run "
        "\"ins-setup remove\" again to go on."
    );
}

TEST_F(KRunStateTest, TheWordsTellOfNoRuleThatIsNotThere) {
    KInterruptedRun run{Run(), 41, ""}; // as former versions wrote behind the last rule
    EXPECT_NE(
        run.ToWords().English().find("was interrupted at rule 40 of 40. "), std::string::npos
    );
    run.ruleCount = 0;
    EXPECT_NE(run.ToWords().English().find(" was interrupted. Run "), std::string::npos)
        << run.ToWords();
}

class NoStateTest : public KRunStateTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(NoStateTest, IsAnInterruptedRunOfWhichNothingIsKnown) {
    GivenText(GetParam());
    const auto run = Read();
    ASSERT_TRUE(run.has_value());
    EXPECT_THAT(
        run->damage.English(), ::testing::StartsWith(tree.Path("base/dps/state") + " cannot be ")
    );
    EXPECT_EQ(
        run->ToWords(),
        run->damage + ": a run was interrupted, but which one is not known. Run \"ins-setup "
                      "install\" or \"remove\" again to go on."
    );
    State().Begin(Run());
    EXPECT_EQ(Read()->damage, "");
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    NoStateTest,
    ::testing::Values(
        "",
        "0000000001",
        "0000000001\n",
        "000000000x\n{}",
        "0000000001\n{}",
        "0000000001\n{\"action\":\"dance\",\"product\":\"\",\"version\":\"\",\"path\":\"\","
        "\"rules\":1}",
        "0000000001\n{\"action\":\"install\",\"product\":\"\",\"version\":\"\",\"path\":\"\","
        "\"rules\":99999999999}"
    )
);

} // namespace
