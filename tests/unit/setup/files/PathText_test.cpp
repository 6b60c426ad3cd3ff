// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>

#include <gtest/gtest.h>

namespace {

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
    [](const auto& each) { return each.param.name; }
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

} // namespace
