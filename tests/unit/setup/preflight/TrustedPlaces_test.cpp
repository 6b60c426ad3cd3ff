// SPDX-License-Identifier: MIT
#include "../GivenPlan.h"

#include <setup/ExitCode.h>
#include <setup/preflight/TrustedPlaces.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

using namespace KSETUP;
using ::testing::HasSubstr;

using TrustedPlacesTest = KTEST::GivenPlan;

TEST_F(TrustedPlacesTest, ADirectoryOfRootsIsPrivate) {
    tree.Directory("kit");
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), 0) << words;
}

TEST_F(TrustedPlacesTest, ADirectoryThatOthersMayWriteIsRefused) {
    tree.Directory("kit", 0775);
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), ExitCode::noKit);
    EXPECT_THAT(words, HasSubstr(tree.Path("kit") + ": others than root can change it"));
    tree.Directory("kit", 01777); // sticky: new files can still be laid there
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), ExitCode::noKit);
}

TEST_F(TrustedPlacesTest, ADirectoryBelowOneThatOthersMayWriteIsRefused) {
    tree.Directory("open", 0777);
    tree.Directory("open/kit");
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("open/kit"))); }), ExitCode::noKit);
    EXPECT_THAT(words, HasSubstr(tree.Path("open") + ": others"));
}

TEST_F(TrustedPlacesTest, AnothersDirectoryIsRefusedUnlessTheyCalledSudo) {
    tree.Directory("kit");
    tree.SetOwner("kit", 1234, 1234);
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), ExitCode::noKit);
    ::setenv("SUDO_UID", "1234", 1); // NOLINT: one thread
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), 0) << words;
    ::setenv("SUDO_UID", "1235", 1); // NOLINT: one thread
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), ExitCode::noKit);
    ::unsetenv("SUDO_UID"); // NOLINT: one thread
}

TEST_F(TrustedPlacesTest, WhatIsInTheDirectoryCountsToo) {
    tree.Write("kit/lib/a", "A", 0664);
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), ExitCode::noKit);
    EXPECT_THAT(words, HasSubstr(tree.Path("kit/lib/a") + ": others"));
    tree.SetMode("kit/lib/a", 0644);
    tree.Link("kit/lib/b", "a"); // a link has no rights of its own
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), 0) << words;
}

TEST_F(TrustedPlacesTest, WhatALinkLeadsToCountsAsIfItWereInTheDirectory) {
    tree.Write("home/install.ini", "", 0644);
    tree.Link("kit/install.ini", "../home/install.ini");
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), 0) << words;
    tree.SetOwner("home/install.ini", 1234, 1234);
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), ExitCode::noKit);
    EXPECT_THAT(words, HasSubstr(tree.Path("kit/install.ini") + ": this link leads out"));
    EXPECT_THAT(words, HasSubstr(tree.Path("home/install.ini")));
    tree.SetOwner("home/install.ini", 0, 0);
    tree.SetOwner("home", 1234, 1234); // whose file it is today says nothing of tomorrow
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), ExitCode::noKit);
    EXPECT_THAT(words, HasSubstr("can change " + tree.Path("home") + " there"));
}

TEST_F(TrustedPlacesTest, WhatIsBelowALinkCountsToo) {
    tree.Write("lib/deep/a.so", "A", 0666);
    tree.Link("lib/again", "../lib");
    tree.Link("kit/lib", tree.Path("lib"));
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), ExitCode::noKit);
    EXPECT_THAT(words, HasSubstr("can change " + tree.Path("lib/deep/a.so") + " there"));
    tree.SetMode("lib/deep/a.so", 0644);
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), 0) << words;
}

TEST_F(TrustedPlacesTest, EachStepOfALinkCounts) {
    tree.Write("mine/tool", "A");
    tree.Link("theirs/step", "../mine/tool");
    tree.Link("kit/tool", "../theirs/step");
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), 0) << words;
    tree.SetOwner("theirs/step", 1234, 1234);
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), ExitCode::noKit);
    tree.SetOwner("theirs/step", 0, 0);
    tree.SetOwner("theirs", 1234, 1234);
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), ExitCode::noKit);
}

TEST_F(TrustedPlacesTest, ALinkToWhatOthersCouldYetMakeIsRefused) {
    tree.Directory("open", 01777);
    tree.Link("kit/tool", tree.Path("open/tool"));
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), ExitCode::noKit);
    tree.SetMode("open", 0755);
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), 0) << words;
}

TEST_F(TrustedPlacesTest, LinksWithinAKitAndToDevicesAreFine) {
    tree.Write("kit/bin/tool", "A");
    tree.Link("kit/one", "bin/tool");
    tree.Link("kit/two", tree.Path("kit/bin"));
    tree.Link("kit/round", "round");
    tree.Link("kit/masked.service", "/dev/null");
    EXPECT_EQ(CodeOf([&] { RequirePrivate(KKitLook(tree.Path("kit"))); }), 0) << words;
}

TEST_F(TrustedPlacesTest, ADirectoryOfLogsMayBeAGroups) {
    tree.Directory("log", 0775);
    EXPECT_EQ(CodeOf([&] { RequireSafeLog(tree.Path("log/Setup Log.txt")); }), 0) << words;
    tree.SetMode("log", 0777);
    EXPECT_EQ(
        CodeOf([&] { RequireSafeLog(tree.Path("log/Setup Log.txt")); }), ExitCode::cannotWrite
    );
    tree.SetMode("log", 0755);
    tree.SetOwner("log", 1234, 1234);
    EXPECT_EQ(
        CodeOf([&] { RequireSafeLog(tree.Path("log/Setup Log.txt")); }), ExitCode::cannotWrite
    );
}

TEST_F(TrustedPlacesTest, ALogIsAFileOrYetToBeMade) {
    tree.Directory("log");
    const std::string log = tree.Path("log/Setup Log.txt");
    EXPECT_EQ(CodeOf([&] { RequireSafeLog(log); }), 0) << words;
    tree.Write("log/Setup Log.txt", "of a former run\n");
    EXPECT_EQ(CodeOf([&] { RequireSafeLog(log); }), 0) << words;
    tree.Remove("log/Setup Log.txt");
    tree.Link("log/Setup Log.txt", "elsewhere");
    EXPECT_EQ(CodeOf([&] { RequireSafeLog(log); }), ExitCode::cannotWrite);
    EXPECT_THAT(words, HasSubstr(log + ": is no regular file"));
    tree.Remove("log/Setup Log.txt");
    tree.Fifo("log/Setup Log.txt");
    EXPECT_EQ(CodeOf([&] { RequireSafeLog(log); }), ExitCode::cannotWrite);
}

TEST_F(TrustedPlacesTest, ADirectoryOfLogsThatIsMissingIsTold) {
    EXPECT_EQ(
        CodeOf([&] { RequireSafeLog(tree.Path("log/Setup Log.txt")); }), ExitCode::cannotWrite
    );
    EXPECT_THAT(words, HasSubstr(tree.Path("log") + ": No such file or directory. Logs go there."));
    EXPECT_THAT(words, HasSubstr("Nothing was changed. Make the directory"));
}

} // namespace
