// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"

#include <setup/files/PathText.h>

#include <gtest/gtest.h>

namespace {

using KSETUP::IsAtOrBelow;
using KSETUP::JoinPath;
using KSETUP::NameOfPath;
using KSETUP::NormalPath;
using KSETUP::ParentPath;

struct Normal {
    const char* name;
    const char* path;
    const char* normal;
};

class NormalPathTest : public ::testing::TestWithParam<Normal> {};

TEST_P(NormalPathTest, IsWhatTheLettersSay) {
    EXPECT_EQ(NormalPath(GetParam().path), GetParam().normal);
}

INSTANTIATE_TEST_SUITE_P(
    Paths,
    NormalPathTest,
    ::testing::Values(
        Normal{"Plain", "/opt/dps/a", "/opt/dps/a"},
        Normal{"Root", "/", "/"},
        Normal{"SeparatorAtTheEnd", "/opt/dps/", "/opt/dps"},
        Normal{"SeparatorsInARow", "/opt//dps", "/opt/dps"},
        Normal{"Dot", "/opt/./dps", "/opt/dps"},
        Normal{"DotDot", "/opt/x/../dps", "/opt/dps"},
        Normal{"DotDotAtTheEnd", "/opt/x/..", "/opt"},
        Normal{"AboveTheRoot", "/../opt", "/opt"},
        Normal{"HiddenName", "/opt/.dps", "/opt/.dps"},
        Normal{"Empty", "", ""}
    ),
    KTEST::NameOfRow()
);

TEST(PathTextTest, ParentsEndAtTheRoot) {
    EXPECT_EQ(ParentPath("/opt/dps"), "/opt");
    EXPECT_EQ(ParentPath("/opt"), "/");
    EXPECT_EQ(ParentPath("/"), "/");
    EXPECT_EQ(ParentPath("name"), "");
}

TEST(PathTextTest, NamesStandBehindTheLastSeparator) {
    EXPECT_EQ(NameOfPath("/opt/dps"), "dps");
    EXPECT_EQ(NameOfPath("dps"), "dps");
    EXPECT_EQ(NameOfPath("/opt/"), "");
}

TEST(PathTextTest, JoinedPathsHaveOneSeparatorBetween) {
    EXPECT_EQ(JoinPath("/opt", "dps"), "/opt/dps");
    EXPECT_EQ(JoinPath("/opt//", "dps"), "/opt/dps");
    EXPECT_EQ(JoinPath("", "dps"), "/dps");
}

TEST(PathTextTest, APathIsBelowADirectoryNotBesideIt) {
    EXPECT_TRUE(IsAtOrBelow("/opt/dps", "/opt/dps"));
    EXPECT_TRUE(IsAtOrBelow("/opt/dps/a", "/opt/dps"));
    EXPECT_TRUE(IsAtOrBelow("/opt", "/"));
    EXPECT_FALSE(IsAtOrBelow("/opt/dpsd", "/opt/dps"));
    EXPECT_FALSE(IsAtOrBelow("/opt", "/opt/dps"));
}

} // namespace
