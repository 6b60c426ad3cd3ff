// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/kit/KSetupKit.h>
#include <setup/script/KMacroContext.h>
#include <sup++/KUtil.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using KSETUP::KMacroContext;
using KSETUP::KScript;
using KSETUP::KSetupKit;
using ::testing::Contains;
using ::testing::Pair;

class KMacroContextTest : public ::testing::Test {
  protected:
    KMacroContextTest() {
        // A service name that no machine has a link of.
        tree.Write(
            "kit/product.ini",
            "[product]\nname=Kmct\nserviceName=kmct-none\niniFile=k.ini\nversion=3.1\nbuildNumber="
            "5\n"
        );
        tree.Write("kit/install.ini", "[install]\ndefaultPath.$os$=/opt/$product$\n");
    }

    KTEST::TemporaryTree tree;
};

TEST_F(KMacroContextTest, ExpandsAsARunForThePathWould) {
    const KSetupKit kit(tree.Path("kit"));
    KMacroContext macros("");
    macros.SetProductPath("/opt/x");
    EXPECT_EQ(macros.Expand("$pathTarget$a$binext$"), "/opt/x/a");
    EXPECT_EQ(macros.Expand("$pathTargetConfig$$iniFile$"), "/opt/x/config/k.ini");
    EXPECT_EQ(macros.Expand("$pathSource$"), tree.Path("kit") + "/");
    EXPECT_EQ(macros.Expand("$verInfo$-$buildNumber$"), "3.1-5");
    EXPECT_STREQ(macros.GetExpander()("$product$").c_str(), "Kmct");
    macros.SetProductPath("/opt/y/");
    EXPECT_EQ(macros.Expand("$pathTarget$"), "/opt/y/");
}

TEST_F(KMacroContextTest, ProposesTheScriptsPath) {
    const KSetupKit kit(tree.Path("kit"));
    const KMacroContext macros("");
    EXPECT_EQ(macros.ProposePath(KScript(kit.GetScript())), "/opt/Kmct");
    tree.Write("kit/install.ini", "[install]\ndefaultPath.lin=/opt/x\n");
    EXPECT_EQ(macros.ProposePath(KScript(kit.GetScript())), "/usr/local/korvane/dps");
}

TEST_F(KMacroContextTest, KnowsMacrosThatHaveNoValueNow) {
    const KSetupKit kit(tree.Path("kit"));
    const KMacroContext macros("");
    EXPECT_TRUE(macros.IsKnown("targetVerInfo"));
    EXPECT_TRUE(macros.IsKnown("os"));
    EXPECT_FALSE(macros.IsKnown("OS"));
    EXPECT_FALSE(macros.IsKnown(""));
    EXPECT_THAT(KMacroContext::GetNames(), Contains("pathTargetLinX86"));
}

TEST_F(KMacroContextTest, ListsWhatHasAValue) {
    const KSetupKit kit(tree.Path("kit"));
    KMacroContext macros("");
    macros.SetProductPath("/opt/x");
    const auto list = macros.List();
    EXPECT_THAT(list, Contains(Pair("pathTargetLin", "/opt/x/lin")));
    EXPECT_THAT(list, Contains(Pair("binext", "")));
    EXPECT_TRUE(std::is_sorted(list.begin(), list.end()));
    for (const std::string& name : KMacroContext::GetNames()) {
        EXPECT_TRUE(name == "targetVerInfo" || macros.Expand("$" + name + "$") != "$" + name + "$")
            << name;
    }
}

TEST_F(KMacroContextTest, ListsEveryDirectoryThatTheEngineSets) {
    const KSetupKit kit(tree.Path("kit"));
    KMacroContext macros("");
    macros.SetProductPath("/opt/x");
    // Others than before, and each another, so that no two can be taken for one.
    std::vector<std::string> marks;
    std::vector<std::pair<unsigned, KSUP::KString>> former;
    for (unsigned id = 0; id < 200; ++id) {
        const KSUP::KString path = KSUP::KUtil::GetPathMap(id);
        if (!path.IsEmpty()) {
            former.emplace_back(id, path);
            marks.push_back("/mark/" + std::to_string(id));
            KSUP::KUtil::SetPathMap(id, marks.back());
        }
    }
    std::vector<std::string> listed;
    for (const auto& [name, value] : macros.List()) {
        if (value.starts_with("/mark/")) {
            listed.push_back(value);
        }
    }
    for (const auto& [id, path] : former) {
        KSUP::KUtil::SetPathMap(id, path);
    }
    EXPECT_GT(marks.size(), 20U);
    EXPECT_THAT(listed, ::testing::UnorderedElementsAreArray(marks));
}

TEST_F(KMacroContextTest, TheManualOfScriptsExplainsEveryMacro) {
    std::ifstream page(INSPP_SOURCE "/docs/script.md");
    std::set<std::string> explained;
    for (std::string line; std::getline(page, line);) {
        const std::string cell = line.substr(0, line.find(" | "));
        const std::regex macro(R"(`\$(\w+)\$`)");
        if (cell.starts_with("| `$")) {
            for (std::sregex_iterator found(cell.begin(), cell.end(), macro), end; found != end;
                 ++found) {
                explained.insert((*found)[1]);
            }
        }
    }
    EXPECT_THAT(KMacroContext::GetNames(), ::testing::ElementsAreArray(explained));
}

} // namespace
