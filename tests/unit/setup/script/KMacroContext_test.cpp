// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/kit/KSetupKit.h>
#include <setup/script/KMacroContext.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

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
    KMacroContext macros;
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
    const KMacroContext macros;
    EXPECT_EQ(macros.ProposePath(KScript(kit.GetScript())), "/opt/Kmct");
    tree.Write("kit/install.ini", "[install]\ndefaultPath.lin=/opt/x\n");
    EXPECT_EQ(macros.ProposePath(KScript(kit.GetScript())), "/usr/local/korvane/dps");
}

TEST_F(KMacroContextTest, KnowsMacrosThatHaveNoValueNow) {
    const KSetupKit kit(tree.Path("kit"));
    const KMacroContext macros;
    EXPECT_TRUE(macros.IsKnown("targetVerInfo"));
    EXPECT_TRUE(macros.IsKnown("os"));
    EXPECT_FALSE(macros.IsKnown("OS"));
    EXPECT_FALSE(macros.IsKnown(""));
    EXPECT_THAT(KMacroContext::GetNames(), Contains("pathTargetLinX86"));
}

TEST_F(KMacroContextTest, ListsWhatHasAValue) {
    const KSetupKit kit(tree.Path("kit"));
    KMacroContext macros;
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

} // namespace
