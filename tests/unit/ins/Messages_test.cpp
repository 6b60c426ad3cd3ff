// SPDX-License-Identifier: MIT
//
// The engine's message catalogue: its files lie beside libins++.
#include "../../support/Language.h"
#include "../../support/TemporaryTree.h"

#include <ins/KInstaller.h>
#include <sup++/SvcMessage.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

class MessagesTest : public ::testing::Test {
  protected:
    static std::vector<std::string> TextsIn(const char* locale) {
        const KTEST::Language language(locale);
        EXPECT_EQ(PrvInsLoadMessage(), 0U);
        std::vector<std::string> texts;
        for (const unsigned id : {0x2C0001U, 0x2C0002U, 0x2C0003U, 0x2C0004U, 0x2C0005U}) {
            texts.emplace_back(SvcGetMessagePtr(id));
        }
        PrvInsUnloadMessage();
        return texts;
    }

    const std::vector<std::string> english{
        "Removing service", "Installing service", "Starting service", "Stopping service", ""};
    const std::vector<std::string> german{
        "Dienst wird entfernt",
        "Dienst wird installiert",
        "Dienst wird gestartet",
        "Dienst wird angehalten",
        ""};
};

TEST_F(MessagesTest, AreEnglishWithoutALanguage) {
    EXPECT_EQ(TextsIn("C"), english);
}

TEST_F(MessagesTest, AreEnglishInALanguageThatHasNoCatalogue) {
    EXPECT_EQ(TextsIn("fr_FR.UTF-8"), english);
}

TEST_F(MessagesTest, AreGermanWhereMessagesAre) {
    EXPECT_EQ(TextsIn("de_DE.UTF-8"), german);
    EXPECT_EQ(TextsIn("de"), german);
}

TEST_F(MessagesTest, TextsStayReadableAfterUnloading) {
    const KTEST::Language language("de_AT");
    EXPECT_EQ(PrvInsLoadMessage(), 0U);
    const char* const text = SvcGetMessagePtr(0x2C0002);
    PrvInsUnloadMessage();
    EXPECT_STREQ(text, "Dienst wird installiert");
    EXPECT_STREQ(SvcGetMessagePtr(0x2C0002), "");
}

// Run by the next test, as a copy of this program beside which there are no files.
TEST_F(MessagesTest, DISABLED_AreBuiltIn) {
    EXPECT_EQ(TextsIn("C"), english);
    EXPECT_EQ(TextsIn("de"), english);
}

TEST_F(MessagesTest, TheBuiltInOnesServeWithoutFilesAndAreThoseOfTheEnglishOne) {
    namespace fs = std::filesystem;
    const KTEST::TemporaryTree tree;
    const fs::path program = fs::read_symlink("/proc/self/exe");
    const fs::path libraries = program.parent_path().parent_path() / "lib";
    const fs::path copy = tree.Path("bin/program");
    fs::create_directories(copy.parent_path());
    fs::create_directories(tree.Path("lib"));
    fs::copy_file(program, copy);
    for (const char* library : {"libins++.so.1", "libdplinsup.so.1"}) {
        fs::copy_file(libraries / library, fs::path(tree.Path("lib")) / library);
    }
    const std::string command = copy.string() +
                                " --gtest_also_run_disabled_tests --gtest_brief=1 "
                                "--gtest_filter=MessagesTest.DISABLED_AreBuiltIn >&2";
    EXPECT_EQ(std::system(command.c_str()), 0);
}

} // namespace
