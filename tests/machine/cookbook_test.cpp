// SPDX-License-Identifier: MIT
//
// The kits of docs/cookbook.md: what the page says of each of them, and that it comes and goes as it should.
#include "../support/TemporaryTree.h"
#include "PageSteps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr std::string_view cookbookKits = INSPP_SOURCE "/examples/cookbook";

/// What may be in a test's name of any text.
std::string TestNameOf(std::string text) {
    std::replace_if(
        text.begin(),
        text.end(),
        [](char byte) { return std::isalnum(static_cast<unsigned char>(byte)) == 0; },
        '_'
    );
    return text;
}

/// Deletes what a former test has left on purpose: data, and what it laid for itself.
void DeleteLeftData() {
    for (const char* const place : {"/var/lib", "/var/log", "/srv"}) {
        for (const fs::directory_entry& entry : fs::directory_iterator(place)) {
            const std::string name = entry.path().filename().string();
            if (name.starts_with("example-") || name.starts_with("Example ")) {
                fs::remove_all(entry.path());
            }
        }
    }
}

struct Recipe {
    std::string name;
    std::vector<KTEST::PageStep> steps;
};

std::vector<Recipe> Recipes() {
    std::vector<Recipe> recipes;
    for (const KTEST::PageStep& step : KTEST::ReadPageSteps("docs/cookbook.md")) {
        if (recipes.empty() || recipes.back().name != step.part) {
            recipes.push_back({step.part, {}});
        }
        recipes.back().steps.push_back(step);
    }
    return recipes;
}

class CookbookTest : public ::testing::TestWithParam<Recipe> {};

TEST_P(CookbookTest, ARecipeDoesWhatThePageSays) {
    DeleteLeftData();
    KTEST::TemporaryTree tree;
    fs::copy(cookbookKits, tree.Path("work"), fs::copy_options::recursive);
    KTEST::ExpectPageSteps(tree, GetParam().steps);
}

INSTANTIATE_TEST_SUITE_P(Page, CookbookTest, ::testing::ValuesIn(Recipes()), [](const auto& info) {
    return TestNameOf(info.param.name);
});

TEST(CookbookPageTest, HasTwelveAnswers) {
    EXPECT_EQ(Recipes().size(), 12U);
}

std::vector<std::string> KitNames() {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(cookbookKits)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// Every path that an installation could make, save its logs. Where the machine itself is at work all
/// the time, only what has a product's name counts.
std::set<std::string> PathsOfProducts() {
    std::set<std::string> paths;
    for (const std::string place :
         {"/etc",
          "/opt",
          "/srv",
          "/usr/lib/sysusers.d",
          "/usr/lib/systemd/system",
          "/usr/local/bin",
          "/var/lib",
          "/var/lib/ins++",
          "/var/lib/systemd/timers",
          "/var/log"}) {
        const bool isQuiet = place == "/etc" || place == "/opt";
        std::error_code isMissing;
        for (fs::recursive_directory_iterator at(place, isMissing), end; at != end; ++at) {
            const std::string path = at->path().string();
            const bool isProduct = path.find("example-") != std::string::npos;
            const bool isAccounts = path.ends_with("-") || path == "/etc/.pwd.lock";
            if (isProduct || (isQuiet && !isAccounts)) {
                paths.insert(path);
            } else if (!isQuiet) {
                at.disable_recursion_pending();
            }
        }
    }
    return paths;
}

/// The data of a product, which its kit leaves.
std::set<std::string> DataOf(const std::string& kit) {
    const std::map<std::string, std::set<std::string>> all{
        {"database", {"", "/notes"}},
        {"migrations",
         {"",
          "/001-people",
          "/001-people/people",
          "/002-surname-first",
          "/002-surname-first/people",
          "/now"}},
        {"own-user", {"", "/name"}},
    };
    std::set<std::string> paths;
    if (const auto found = all.find(kit); found != all.end()) {
        for (const std::string& name : found->second) {
            paths.insert("/var/lib/example-" + kit + name);
        }
    }
    return paths;
}

class CookbookKitTest : public ::testing::TestWithParam<std::string> {};

/// Checked, planned, installed, verified, installed once more and removed, as an administrator would.
TEST_P(CookbookKitTest, LeavesNothingButItsData) {
    const std::string& kit = GetParam();
    DeleteLeftData();
    fs::create_directory("/srv/example-data"); // what environment-check wants
    KTEST::TemporaryTree tree;
    fs::copy(cookbookKits, tree.Path("work"), fs::copy_options::recursive);
    const std::set<std::string> before = PathsOfProducts();
    const auto run = [&kit](const std::string& command, const std::string& says) {
        return KTEST::PageStep{"kit", kit, 0, "ins-setup " + command + " --kit " + kit, 0, {says}};
    };
    KTEST::ExpectPageSteps(
        tree,
        {run("check --strict", "nothing is wrong with its script"),
         run("plan install", "create "),
         run("install", "is installed in /opt/example-" + kit),
         run("status --verify", "It is as it was installed."),
         run("install", "nothing was done"),
         run("remove --yes --purge", "is removed from /opt/example-" + kit)}
    );
    const std::set<std::string> after = PathsOfProducts();
    std::set<std::string> left;
    std::set_difference(
        after.begin(), after.end(), before.begin(), before.end(), std::inserter(left, left.end())
    );
    EXPECT_EQ(left, DataOf(kit));
}

INSTANTIATE_TEST_SUITE_P(
    Kits,
    CookbookKitTest,
    ::testing::ValuesIn(KitNames()),
    [](const auto& info) { return TestNameOf(info.param); }
);

} // namespace
