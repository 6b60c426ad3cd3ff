// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"
#include "../../../support/TemporaryTree.h"

#include <setup/files/TrustedPath.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include <unistd.h>

namespace {

using KSETUP::KPathEnd;
using KSETUP::WhyOthersCanExchange;

constexpr uid_t ann = 65534;

struct TrustedPathRow {
    const char* name;
    std::function<void(KTEST::TemporaryTree& tree)> given;
    std::string path;
    KPathEnd end;
    std::string why; ///< "@" stands for the tree's path; empty where nobody can

    friend void PrintTo(const TrustedPathRow& row, std::ostream* out) { *out << row.name; }
};

class TrustedPathTest : public ::testing::TestWithParam<TrustedPathRow> {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
    }

    KTEST::TemporaryTree tree;
};

TEST_P(TrustedPathTest, SaysWhoElseCouldExchangeIt) {
    GetParam().given(tree);
    std::string expected = GetParam().why;
    for (std::size_t at = expected.find('@'); at != std::string::npos; at = expected.find('@')) {
        expected.replace(at, 1, tree.Path());
    }
    EXPECT_EQ(WhyOthersCanExchange(tree.Path(GetParam().path), GetParam().end), expected);
}

constexpr auto counts = KPathEnd::Counts;
constexpr auto othersBusiness = KPathEnd::IsOthersBusiness;

INSTANTIATE_TEST_SUITE_P(
    Paths,
    TrustedPathTest,
    ::testing::Values(
        TrustedPathRow{"OfRoots", [](auto& tree) { tree.Directory("a/b"); }, "a/b", counts, ""},
        TrustedPathRow{
            "MissingBelowRoots", [](auto& tree) { tree.Directory("a"); }, "a/b/c", counts, ""},
        TrustedPathRow{
            "BelowAUsers",
            [](auto& tree) {
                tree.Directory("a/b");
                tree.SetOwner("a", ann, 0);
            },
            "a/b",
            counts,
            "@/a belongs to the user nobody"},
        TrustedPathRow{
            "AUsersItself",
            [](auto& tree) {
                tree.Directory("a");
                tree.SetOwner("a", ann, 0);
            },
            "a",
            counts,
            "@/a belongs to the user nobody"},
        TrustedPathRow{
            "AUsersItselfThatIsItsBusiness",
            [](auto& tree) {
                tree.Directory("a");
                tree.SetOwner("a", ann, 0);
            },
            "a",
            othersBusiness,
            ""},
        TrustedPathRow{
            "BelowOneOfAGroup",
            [](auto& tree) {
                tree.Directory("a/b");
                tree.Directory("a", 0775);
            },
            "a/b",
            counts,
            "@/a can be written to by others than root"},
        TrustedPathRow{
            "BelowAStickyOne",
            [](auto& tree) {
                tree.Directory("a/b");
                tree.Directory("a", 01777);
            },
            "a/b",
            counts,
            ""},
        TrustedPathRow{
            "MissingInAStickyOne",
            [](auto& tree) { tree.Directory("a", 01777); },
            "a/b",
            counts,
            "anybody can lay @/a/b"},
        TrustedPathRow{
            "AStickyOneItself",
            [](auto& tree) { tree.Directory("a", 01777); },
            "a",
            counts,
            "@/a can be written to by others than root"},
        TrustedPathRow{
            "ByALinkToAUsers",
            [](auto& tree) {
                tree.Directory("home/b");
                tree.SetOwner("home", ann, 0);
                tree.Link("a", "home");
            },
            "a/b",
            counts,
            "@/home belongs to the user nobody"},
        TrustedPathRow{
            "ByALinkOfAUsers",
            [](auto& tree) {
                tree.Directory("b");
                tree.Link("a", "b");
                tree.SetOwner("a", ann, 0);
            },
            "a",
            counts,
            "the link @/a belongs to the user nobody"},
        TrustedPathRow{
            "ByALinkOfAUsersAlsoWhereTheEndIsTheirs",
            [](auto& tree) {
                tree.Directory("b");
                tree.Link("a", "b");
                tree.SetOwner("a", ann, 0);
            },
            "a",
            othersBusiness,
            "the link @/a belongs to the user nobody"},
        TrustedPathRow{
            "ThroughAUsersAndUpAgain",
            [](auto& tree) {
                tree.Directory("home/x");
                tree.Directory("b");
                tree.SetOwner("home", ann, 0);
                tree.Link("a", "home/../b");
            },
            "a",
            counts,
            "@/home belongs to the user nobody"}
    ),
    KTEST::NameOfRow()
);

} // namespace
