// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/KSetupKit.h>
#include <setup/plan/KDiskView.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using KSETUP::KDiskView;
using KSETUP::KEntryKind;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// Directories with a slash behind them.
std::vector<std::string> Words(const std::vector<KDiskView::Name>& names) {
    std::vector<std::string> words;
    for (const KDiskView::Name& one : names) {
        words.push_back(std::string(one.Get()) + (one.isDirectory ? "/" : ""));
    }
    return words;
}

class KDiskViewTest : public ::testing::Test {
  protected:
    std::string At(const std::string& path) const { return disk.Path(path); }

    KTEST::TemporaryTree disk;
    KDiskView view;
};

TEST_F(KDiskViewTest, TellsWhatIsThere) {
    disk.Write("a.txt", "12345", 0640);
    disk.Link("link", "a.txt");
    ASSERT_EQ(::mkfifo(At("pipe").c_str(), 0600), 0);
    EXPECT_EQ(view.Look(At("a.txt")).kind, KEntryKind::File);
    EXPECT_EQ(view.Look(At("a.txt")).bytes, 5U);
    EXPECT_EQ(view.Look(At("a.txt")).mode, 0640U);
    EXPECT_EQ(view.Look(At("link")).kind, KEntryKind::Link);
    EXPECT_EQ(view.Look(At("link")).GetTarget(), "a.txt");
    EXPECT_EQ(view.Look(At("pipe")).kind, KEntryKind::Other);
    EXPECT_EQ(view.Look(At("")).kind, KEntryKind::Directory);
    EXPECT_EQ(view.Look("/").kind, KEntryKind::Directory);
}

TEST_F(KDiskViewTest, NothingIsBelowWhatIsMissingOrNoDirectory) {
    disk.Write("a.txt", "");
    EXPECT_EQ(view.Look(At("none")).kind, KEntryKind::Nothing);
    EXPECT_EQ(view.Look(At("none/deep/file")).kind, KEntryKind::Nothing);
    EXPECT_EQ(view.Look(At("a.txt/file")).kind, KEntryKind::Nothing);
}

TEST_F(KDiskViewTest, LooksThroughALinkToADirectory) {
    disk.Write("real/a.txt", "1");
    disk.Link("way", "real");
    EXPECT_EQ(view.Look(At("way/a.txt")).bytes, 1U);
    EXPECT_THAT(Words(view.List(At("way"))), ElementsAre("a.txt"));
}

TEST_F(KDiskViewTest, ListsInTheOrderOfBytes) {
    disk.Write("d/b", "");
    disk.Write("d/B", "");
    disk.Write("d/.hidden", "");
    disk.Write("d/deep/x", "");
    disk.Link("d/gone", "nowhere");
    disk.Link("d/way", "deep");
    EXPECT_THAT(
        Words(view.List(At("d"))), ElementsAre(".hidden", "B", "b", "deep/", "gone", "way")
    );
    EXPECT_EQ(view.Look(At("d/gone")).GetTarget(), "nowhere");
}

TEST_F(KDiskViewTest, NoDirectoryHasNoNames) {
    disk.Write("a.txt", "");
    EXPECT_THAT(view.List(At("none")), IsEmpty());
    EXPECT_THAT(view.List(At("a.txt")), IsEmpty());
}

TEST_F(KDiskViewTest, RemembersWhatItSaw) {
    disk.Write("d/a.txt", "1");
    EXPECT_THAT(Words(view.List(At("d"))), ElementsAre("a.txt"));
    std::filesystem::remove_all(At("d"));
    EXPECT_EQ(view.Look(At("d/a.txt")).bytes, 1U);
    EXPECT_THAT(Words(view.List(At("d"))), ElementsAre("a.txt"));
    EXPECT_EQ(KDiskView().Look(At("d/a.txt")).kind, KEntryKind::Nothing);
}

TEST_F(KDiskViewTest, AListingThatCannotBeBegunIsToldNotEmpty) {
    // A sanitizer needs descriptors when it meets a type for the first time.
    EXPECT_THROW(KSETUP::KSetupKit(At("missing")), KSETUP::KSetupFailure);
    rlimit former{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &former), 0);
    const rlimit none{0, former.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    int exitCode = 0;
    std::string words;
    try {
        view.List("/");
    } catch (const KSETUP::KSetupFailure& failure) {
        exitCode = failure.GetExitCode();
        words = failure.what();
    }
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &former), 0);
    EXPECT_EQ(exitCode, KSETUP::ExitCode::noKit);
    EXPECT_THAT(words, HasSubstr("cannot read /: Too many open files. Nothing was changed."));
}

/// The words of a refusal, empty without one, where the directory cannot be opened.
template <class List>
std::string WordsWhereDenied(const List& list) {
    failcall_arm("openat", 1, EACCES, 0);
    std::string words;
    try {
        list();
    } catch (const KSETUP::KSetupFailure& failure) {
        words = failure.what();
    }
    failcall_disarm();
    return words;
}

TEST_F(KDiskViewTest, WhatRootCannotReadIsNotEmpty) {
    disk.Write("d/a", "");
    EXPECT_THAT(
        WordsWhereDenied([&] { view.List(At("d")); }),
        HasSubstr("cannot read " + At("d") + ": Permission denied. Nothing was changed.")
    );
}

TEST_F(KDiskViewTest, WhoMayNotLookFindsNothingSaveWhereItIsCopiedFrom) {
    disk.Write("d/a", "");
    ASSERT_EQ(::seteuid(65534), 0);
    const std::string listed =
        WordsWhereDenied([&] { EXPECT_THAT(view.List(At("d")), IsEmpty()); });
    const std::string copied = WordsWhereDenied([&] { view.ListSources(At("d")); });
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_EQ(listed, "");
    EXPECT_THAT(copied, HasSubstr("Permission denied"));
}

TEST_F(KDiskViewTest, ALinkThatCannotBeReadIsNotOneThatLeadsNowhere) {
    disk.Link("link", "a.txt");
    bool isRefused = false;
    failcall_arm("readlinkat", 1, EIO, 0);
    try {
        view.Look(At("link"));
    } catch (const KSETUP::KSetupFailure&) {
        isRefused = true;
    }
    failcall_disarm();
    EXPECT_TRUE(isRefused);
}

} // namespace
