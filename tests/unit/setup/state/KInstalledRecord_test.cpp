// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"

#include <setup/state/KInstalledRecord.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using KSETUP::KInstalledRecord;
using KSETUP::LooksLikeVersion;

struct VersionRow {
    const char* name;
    std::string text;
    bool isVersion;
};

class LooksLikeVersionTest : public ::testing::TestWithParam<VersionRow> {};

TEST_P(LooksLikeVersionTest, OnlyWhatMeansNothingElseIsOne) {
    EXPECT_EQ(LooksLikeVersion(GetParam().text), GetParam().isVersion);
}

INSTANTIATE_TEST_SUITE_P(
    Rows,
    LooksLikeVersionTest,
    ::testing::Values(
        VersionRow{"Numbers", "2.1.30", true},
        VersionRow{"DebiansSigns", "1:2.0~rc1+b2-3", true},
        VersionRow{"ALetterFirst", "v2_beta", true},
        VersionRow{"OfAHundredBytes", std::string(100, '1'), true},
        VersionRow{"OfMore", std::string(101, '1'), false},
        VersionRow{"Nothing", "", false},
        VersionRow{"ABlank", "2.1 beta", false},
        VersionRow{"ASignFirst", "-1", false},
        VersionRow{"StepsUp", "../../etc", false},
        VersionRow{"APath", "1/2", false},
        VersionRow{"ACommand", "1$(id)", false},
        VersionRow{"Backquotes", "1`id`", false},
        VersionRow{"ASecondCommand", "1;id", false},
        VersionRow{"ALineEnd", "1\n2", false},
        VersionRow{"ANul", std::string("1\0", 2), false},
        VersionRow{"AnEscape", "1\x1b[2J", false},
        VersionRow{"AMacro", "$os$", false},
        VersionRow{"OtherLetters", "2.\xC3\xA4", false}
    ),
    KTEST::NameOfRow()
);

TEST(KInstalledRecordTest, TheMacroHasVersionAndBuild) {
    EXPECT_EQ(KSETUP::InstalledVersionText(std::nullopt), "");
    EXPECT_EQ(
        KSETUP::InstalledVersionText(KInstalledRecord{"/opt/p", "2.1", 4, {}, {}, {}}), "2.1-4"
    );
}

} // namespace
