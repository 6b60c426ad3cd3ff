// SPDX-License-Identifier: MIT
#include <setup/safety/CompareVersions.h>

#include <gtest/gtest.h>

namespace {

using KSETUP::CompareVersions;

struct Pair {
    const char* older;
    const char* newer;
};

class OlderVersionTest : public ::testing::TestWithParam<Pair> {};

TEST_P(OlderVersionTest, IsOlderBothWaysRound) {
    EXPECT_LT(CompareVersions(GetParam().older, GetParam().newer), 0);
    EXPECT_GT(CompareVersions(GetParam().newer, GetParam().older), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Versions,
    OlderVersionTest,
    ::testing::Values(
        Pair{"2.9", "2.10"},
        Pair{"2.1", "2.2"},
        Pair{"2", "2.0.1"},
        Pair{"", "0.1"},
        Pair{"1.99", "2"},
        Pair{"2.09", "2.10"},
        Pair{"2.2rc1", "2.2"},
        Pair{"2.2-rc1", "2.2-rc2"},
        Pair{"2.2-beta", "2.2-RC1"},
        Pair{"2.2-alpha", "2.2-beta"},
        Pair{"2.2.dev5", "2.2alpha1"},
        Pair{"2.2~1", "2.2"},
        Pair{"2.2", "2.2a"},
        Pair{"2.2a", "2.2b"},
        Pair{"2.2a", "2.2.1"},
        Pair{"2.2rc1", "2.2.0"},
        Pair{"2.2", "2.2-p1"},
        Pair{"99999999999999999999", "100000000000000000000"},
        Pair{"v2.9", "2.10"}
    )
);

class SameVersionTest : public ::testing::TestWithParam<Pair> {};

TEST_P(SameVersionTest, IsNeitherOlderNorNewer) {
    EXPECT_EQ(CompareVersions(GetParam().older, GetParam().newer), 0);
    EXPECT_EQ(CompareVersions(GetParam().newer, GetParam().older), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Versions,
    SameVersionTest,
    ::testing::Values(
        Pair{"2.2", "2.2"},
        Pair{"2", "2.0.0"},
        Pair{"02.002", "2.2"},
        Pair{"v2.2", "2.2"},
        Pair{"2.2-RC1", "2.2rc1"},
        Pair{"", "0"},
        Pair{"", ""},
        Pair{"2.2.", "2.2"}
    )
);

} // namespace
