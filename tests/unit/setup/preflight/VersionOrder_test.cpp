// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"

#include <setup/preflight/VersionOrder.h>

#include <gtest/gtest.h>

namespace {

using KSETUP::CompareVersions;

struct Order {
    const char* name;
    const char* older;
    const char* newer;
};

class VersionOrderTest : public ::testing::TestWithParam<Order> {};

TEST_P(VersionOrderTest, IsAsPeopleCount) {
    EXPECT_TRUE(CompareVersions(GetParam().older, GetParam().newer) < 0);
    EXPECT_TRUE(CompareVersions(GetParam().newer, GetParam().older) > 0);
    EXPECT_TRUE(CompareVersions(GetParam().older, GetParam().older) == 0);
}

INSTANTIATE_TEST_SUITE_P(
    Pairs,
    VersionOrderTest,
    ::testing::Values(
        Order{"NumbersAreNumbers", "2.9", "2.10"},
        Order{"MoreIsNewer", "2.1", "2.1.1"},
        Order{"LettersAreLater", "2.1", "2.1a"},
        Order{"LettersCount", "2.1a", "2.1b"},
        Order{"NumbersBehindLetters", "2.1-rc9", "2.1-rc10"},
        Order{"ATildeIsBefore", "2.1~rc1", "2.1"},
        Order{"LongNumbers", "20260131235959123", "20260131235959124"},
        Order{"NothingIsOldest", "", "0"},
        Order{"MajorFirst", "1.99", "2.0"}
    ),
    KTEST::NameOfRow()
);

TEST(VersionOrderTest, LeadingZerosDoNotCount) {
    EXPECT_TRUE(CompareVersions("2.01", "2.1") == 0);
    EXPECT_TRUE(CompareVersions("2.000", "2.0") == 0);
}

} // namespace
