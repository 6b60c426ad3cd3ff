// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/plan/ProductPath.h>

#include <gtest/gtest.h>

namespace {

using KSETUP::WhyNotAProductPath;

class RefusedPathTest : public ::testing::TestWithParam<const char*> {};

TEST_P(RefusedPathTest, IsNoProductPath) {
    EXPECT_NE(WhyNotAProductPath(GetParam()), "");
}

INSTANTIATE_TEST_SUITE_P(
    Paths,
    RefusedPathTest,
    ::testing::Values(
        "",
        "/",
        "//",
        "/.",
        "/usr",
        "/usr/",
        "/usr//",
        "/usr/local",
        "/usr/../etc",
        "/opt/dps/..",
        "/etc",
        "/bin",
        "/var",
        "/var/lib",
        "/home",
        "/root",
        "/tmp",
        "/proc/1",
        "/sys",
        "/dev/shm/dps",
        "/usr/lib/x86_64-linux-gnu",
        "/usr/lib/systemd/system",
        "/var/lib/dpkg/info",
        "/home/somebody",
        "/opt/a,b",
        "/opt/$os$",
        "/opt/a\nb",
        "opt/dps",
        "./dps"
    )
);

class AcceptedPathTest : public ::testing::TestWithParam<const char*> {};

TEST_P(AcceptedPathTest, IsAProductPath) {
    EXPECT_EQ(WhyNotAProductPath(GetParam()), "");
}

INSTANTIATE_TEST_SUITE_P(
    Paths,
    AcceptedPathTest,
    ::testing::Values(
        "/opt/dps",
        "/opt/dps/",
        "/usr/local/korvane/dps",
        "/usr/lib/dps",
        "/srv/a b",
        "/device/x",
        "/home/somebody/dps"
    )
);

TEST(ProductPathTest, ALinkToADirectoryOfTheSystemIsRefused) {
    KTEST::TemporaryTree tree;
    tree.Link("product", "/usr");
    EXPECT_EQ(WhyNotAProductPath(tree.Path("product")), "it is a directory of the system");
}

TEST(ProductPathTest, AStepUpBehindALinkIsRefusedWhereItLeads) {
    KTEST::TemporaryTree tree;
    tree.Directory("mine");
    tree.Link("mine/share", "/usr/share");
    // By its letters it is below the tree, and behind the link it is /usr.
    EXPECT_EQ(WhyNotAProductPath(tree.Path("mine/share/..")), "it is a directory of the system");
    EXPECT_EQ(
        WhyNotAProductPath(tree.Path("mine/share/../lib")), "it is a directory of the system"
    );
    EXPECT_EQ(WhyNotAProductPath(tree.Path("mine/share/product")), "");
}

TEST(ProductPathTest, TheReasonTellsWhatIsWrong) {
    EXPECT_EQ(WhyNotAProductPath(""), "it is empty");
    EXPECT_EQ(WhyNotAProductPath("opt"), "it does not begin with \"/\"");
    EXPECT_EQ(WhyNotAProductPath("/etc"), "it is a directory of the system");
}

} // namespace
