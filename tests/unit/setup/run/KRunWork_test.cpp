// SPDX-License-Identifier: MIT
#include <setup/run/KRunWork.h>

#include <gtest/gtest.h>

#include <deque>
#include <string>

namespace {

using KSETUP::KPlannedAction;
using KSETUP::KPlannedRule;
using KSETUP::KRunWork;

KPlannedRule CopyOf(const std::vector<std::pair<std::string, std::uint64_t>>& files) {
    static const KSETUP::KScriptRule line;
    static std::deque<std::string> kept; // as long as the actions that name them
    KPlannedRule rule{line, {}};
    for (const auto& [path, bytes] : files) {
        KPlannedAction action;
        action.kind = KPlannedAction::Kind::CopyFile;
        action.path = &kept.emplace_back(path);
        action.bytes = bytes;
        rule.actions.push_back(action);
    }
    return rule;
}

constexpr std::uint64_t large = 800ULL << 20U;

TEST(KRunWorkTest, ALargeFileIsMostOfTheRun) {
    const KPlannedRule copy = CopyOf({{"/a", large}});
    KRunWork work({{}, {}, {&copy}, {}});
    work.BeginRule(2);
    EXPECT_EQ(work.GetPercent(), 0U);
    work.BeginEntry("/a");
    work.SetPart(0.5);
    EXPECT_EQ(work.GetPercent(), 50U);
    EXPECT_EQ(work.GetBytesDone(), large / 2);
    EXPECT_EQ(work.GetBytesAll(), large);
    work.BeginRule(3);
    EXPECT_EQ(work.GetPercent(), 99U);
    EXPECT_EQ(work.GetBytesDone(), large);
}

TEST(KRunWorkTest, RulesWithoutBytesAreAlike) {
    KRunWork work({{}, {}, {}, {}});
    work.BeginRule(1);
    EXPECT_EQ(work.GetPercent(), 25U);
    work.BeginRule(3);
    EXPECT_EQ(work.GetPercent(), 75U);
}

TEST(KRunWorkTest, IsNotWholeBeforeTheRecordIsWritten) {
    KRunWork work(std::vector<KRunWork::Rule>(1));
    work.BeginRule(1);
    EXPECT_EQ(work.GetPercent(), 99U);
}

TEST(KRunWorkTest, FilesOfARuleAddUp) {
    const KPlannedRule copy = CopyOf({{"/a", 1000}, {"/b", 2000}, {"/c", 3000}});
    KRunWork work({{&copy}});
    work.BeginRule(0);
    work.BeginEntry("/a");
    work.SetPart(1);
    work.BeginEntry("/b");
    work.SetPart(0.5);
    EXPECT_EQ(work.GetBytesDone(), 2000U);
    work.BeginEntry("/c"); // what is behind in the plan is done
    EXPECT_EQ(work.GetBytesDone(), 3000U);
}

TEST(KRunWorkTest, AFileThatNoPlanHasDoesNotCount) {
    const KPlannedRule copy = CopyOf({{"/a", 1000}, {"/b", 2000}});
    KRunWork work({{&copy}});
    work.BeginRule(0);
    work.BeginEntry("/a");
    work.SetPart(1);
    work.BeginEntry("/made by a command");
    work.SetPart(0.7);
    EXPECT_EQ(work.GetBytesDone(), 1000U);
    work.BeginEntry("/b");
    work.SetPart(1);
    EXPECT_EQ(work.GetBytesDone(), 3000U);
}

TEST(KRunWorkTest, NeverGoesBack) {
    const KPlannedRule copy = CopyOf({{"/a", large}, {"/b", large}});
    KRunWork work({{&copy}});
    work.BeginRule(0);
    work.BeginEntry("/a");
    work.SetPart(1);
    const unsigned reached = work.GetPercent();
    work.BeginEntry("/a"); // once more, as an edited file's new one
    EXPECT_GE(work.GetPercent(), reached);
    EXPECT_GE(reached, 49U);
}

} // namespace
