// SPDX-License-Identifier: MIT
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/NameOfRow.h"
#include "../../support/SlotOf.h"
#include "Injected.h"

#include <ins/KDirectoryRule.h>

#include <gmock/gmock.h>

#include <type_traits>

#include <sys/stat.h>

namespace {

using KINS::KDirectoryRule;
using KTEST::Place;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KDirectoryRuleTest : public KTEST::RuleTest {
  protected:
    std::string Text(const char* verb, const char* relative) const {
        return std::string("- ") + verb + ' ' + tree.Path(relative);
    }
};

TEST_F(KDirectoryRuleTest, OverridesInTheSlotsOfItsBase) {
    using KTEST::SlotOf;
    EXPECT_EQ(SlotOf(&KDirectoryRule::Execute), 2);
    EXPECT_EQ(SlotOf(&KDirectoryRule::Description), 4);
    EXPECT_EQ(SlotOf(&KDirectoryRule::ParseRule), 6);
}

TEST_F(KDirectoryRuleTest, IsAnInstallRuleThatCounts) {
    const KDirectoryRule rule(&manager, "create,/x");
    EXPECT_STREQ(rule.GetClassTag(), "KInstallRule");
    EXPECT_TRUE(rule.ShouldCount());
    EXPECT_FALSE(std::is_copy_constructible_v<KDirectoryRule>);
    EXPECT_FALSE(std::is_copy_assignable_v<KDirectoryRule>);
}

// Parsing

struct RefusedLine {
    const char* name;
    const char* line;
    const char* information;
};

class KDirectoryRuleRefusalTest : public KTEST::RuleTest,
                                  public ::testing::WithParamInterface<RefusedLine> {};

TEST_P(KDirectoryRuleRefusalTest, IsError7000WithTheExpandedLineAndNoRule) {
    world.GivenKey("directoryComma", "a,b");
    const KSUP::KError error = RefusalOf("directory", GetParam().line);
    EXPECT_EQ(
        std::string("48 7000.0 ins/KDirectoryRule:53 ParseRule \"") + GetParam().information + '"',
        Place(error)
    );
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
    EXPECT_EQ(manager.GetRuleCount(), 0U);
    EXPECT_THAT(Added(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    ALineWith,
    KDirectoryRuleRefusalTest,
    ::testing::Values(
        RefusedLine{"NoField", "", ""},
        RefusedLine{"OneField", "create", "create"},
        RefusedLine{"AnEmptyPath", "create,", "create,"},
        RefusedLine{"ThreeFields", "create,/a,/b", "create,/a,/b"},
        RefusedLine{"AMacro", "$os$", "lin"},
        RefusedLine{"ACommaInAMacro", "create,$directoryComma$", "create,a,b"}
    ),
    KTEST::NameOfRow()
);

struct DescribedLine {
    const char* name;
    const char* line;
    const char* description;
};

class KDirectoryRuleDescriptionTest : public KTEST::RuleTest,
                                      public ::testing::WithParamInterface<DescribedLine> {};

TEST_P(KDirectoryRuleDescriptionTest, NamesThePath) {
    world.GivenKey("directoryOnce", "$os$");
    EXPECT_EQ(DescriptionOf("directory", GetParam().line), GetParam().description);
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    KDirectoryRuleDescriptionTest,
    ::testing::Values(
        DescribedLine{"ACreation", "create,/opt/app", "Create path /opt/app"},
        DescribedLine{"ADeletion", "delete,/opt/app", "Delete path /opt/app"},
        DescribedLine{"ADeletionInUpperCase", "DELETE,/opt/App", "Delete path /opt/App"},
        DescribedLine{"AnUnknownOperation", "remove,/opt/app", "Create path /opt/app"},
        DescribedLine{"AMacroInThePath", "create,/opt/$os$/", "Create path /opt/lin/"},
        DescribedLine{
            "AMacroInAMacroExpandsOnce", "create,/opt/$directoryOnce$", "Create path /opt/$os$"}
    ),
    KTEST::NameOfRow()
);

TEST_F(KDirectoryRuleTest, TheLineIsExpandedByTheConstructor) {
    world.GivenKey("directoryWhen", "constructed");
    KDirectoryRule rule(&manager, "create,/$directoryWhen$");
    world.GivenKey("directoryWhen", "parsed");
    rule.Initialize();
    EXPECT_STREQ(rule.Description().c_str(), "Create path /constructed");
}

TEST_F(KDirectoryRuleTest, AMacroMayHoldTheOperation) {
    world.GivenKey("directoryVerb", "Delete");
    EXPECT_EQ(DescriptionOf("directory", "$directoryVerb$,/x"), "Delete path /x");
}

// Creating

TEST_F(KDirectoryRuleTest, CreateMakesTheDirectoryWithItsParents) {
    const mode_t before = ::umask(077);
    Run("directory", "CREATE,@T@/opt/app/log");
    ::umask(before);
    EXPECT_THAT(tree.List("opt"), ElementsAre("d 0755 app", "d 0755 app/log"));
    EXPECT_THAT(statuses.Lines(), ElementsAre(Text("Creating directory", "opt/app/log")));
}

TEST_F(KDirectoryRuleTest, CreateOfADirectoryThatIsThereLeavesItAsItIs) {
    tree.Directory("app", 0700);
    tree.Write("app/a", "mine");
    Run("directory", "create,@T@/app");
    EXPECT_EQ(tree.Mode("app"), 0700U);
    EXPECT_THAT(tree.List("app"), ElementsAre("f 0644 a \"mine\""));
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

TEST_F(KDirectoryRuleTest, CreatePassesTheSupportLibrary1AndIgnoresItsStatus) {
    KTEST::Injection inject;
    std::vector<std::string> asked;
    inject.SvcCreateDirectory = [&](unsigned flags, const char* path, unsigned third) {
        asked.push_back(std::to_string(flags) + ' ' + path + ' ' + std::to_string(third));
        return 28U;
    };
    EXPECT_NO_THROW(Run("directory", "create,/inspp/no/such"));
    EXPECT_THAT(asked, ElementsAre("0 /inspp/no/such 1"));
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
    EXPECT_THAT(trace.Texts(48), IsEmpty());
}

TEST_F(KDirectoryRuleTest, CreateWhereAFileStandsGoesOnSilently) {
    tree.Write("app", "a file");
    EXPECT_NO_THROW(Run("directory", "create,@T@/app"));
    EXPECT_NO_THROW(Run("directory", "create,@T@/app/below"));
    EXPECT_EQ(tree.Read("app"), "a file");
}

// Deleting

TEST_F(KDirectoryRuleTest, DeleteRemovesFilesAndDirectoryWithAStatusEach) {
    tree.Write("app/b", "");
    tree.Write("app/.a", "");
    tree.Link("app/c", "dangling");
    Run("directory", "delete,@T@/app");
    EXPECT_FALSE(tree.Exists("app"));
    EXPECT_THAT(
        statuses.Lines(),
        ElementsAre(
            Text("Deleting file", "app/.a"),
            Text("Deleting file", "app/b"),
            Text("Deleting file", "app/c"),
            Text("Deleting directory", "app")
        )
    );
}

TEST_F(KDirectoryRuleTest, DeleteLeavesSubdirectoriesAndTheDirectoryThatHoldsThem) {
    tree.Write("app/a", "");
    tree.Write("app/z", "");
    tree.Write("app/sub/keep", "mine");
    Run("directory", "delete,@T@/app");
    EXPECT_THAT(tree.List("app"), ElementsAre("d 0755 sub", "f 0644 sub/keep \"mine\""));
    EXPECT_THAT(
        statuses.Lines(),
        ElementsAre(
            Text("Deleting file", "app/a"),
            Text("Deleting file", "app/z"),
            Text("Deleting directory", "app")
        )
    );
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

TEST_F(KDirectoryRuleTest, DeleteOfAMissingDirectorySaysSoAndGoesOn) {
    Run("directory", "delete,@T@/none");
    EXPECT_THAT(statuses.Lines(), ElementsAre(Text("Deleting directory", "none")));
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
    EXPECT_THAT(trace.Texts(48), IsEmpty());
}

TEST_F(KDirectoryRuleTest, DeleteThroughAStrangersLinkDeletesNothing) {
    tree.Write("real/a", "mine");
    tree.Directory("open", 0777);
    tree.Link("open/way", "../real");
    EXPECT_NO_THROW(Run("directory", "delete,@T@/open/way"));
    EXPECT_THAT(tree.List("real"), ElementsAre("f 0644 a \"mine\""));
}

TEST_F(KDirectoryRuleTest, DeleteOfWhatCannotBeListedSaysSoAndGoesOn) {
    tree.Link("loop", tree.Path("loop"));
    const std::string longName(300, 'n');
    for (const std::string& path : {tree.Path("loop"), tree.Path(longName)}) {
        Run("directory", "delete," + path);
        EXPECT_EQ("- Deleting directory " + path, statuses.Lines().back());
        EXPECT_EQ(manager.GetCompletedCount(), 1U);
    }
    EXPECT_TRUE(tree.Exists("loop"));
}

TEST_F(KDirectoryRuleTest, AFileThatCannotBeDeletedDoesNotKeepTheNextOne) {
    tree.Write("app/a", "");
    tree.Write("app/b", "");
    // Gone behind the enumeration's back: deleting it fails.
    statuses.At(1, [&] { tree.Remove("app/a"); });
    EXPECT_NO_THROW(Run("directory", "delete,@T@/app"));
    EXPECT_FALSE(tree.Exists("app"));
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

TEST_F(KDirectoryRuleTest, DeletePassesTheSupportLibrary0AndIgnoresItsStatus) {
    KTEST::Injection inject;
    std::vector<std::string> asked;
    inject.SvcDeleteDirectory = [&](unsigned flags, const char* path, unsigned third) {
        asked.push_back(std::to_string(flags) + ' ' + path + ' ' + std::to_string(third));
        return 5U;
    };
    tree.Directory("app");
    EXPECT_NO_THROW(Run("directory", "delete,@T@/app"));
    EXPECT_THAT(asked, ElementsAre("0 " + tree.Path("app") + " 0"));
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

TEST_F(KDirectoryRuleTest, DeleteDoesNotAskForCancellation) {
    tree.Write("app/a", "");
    tree.Write("app/b", "");
    statuses.At(1, [&] { installer->Stop(); });
    KDirectoryRule rule(&manager, InTree("delete,@T@/app"));
    rule.Initialize();
    rule.Execute();
    EXPECT_FALSE(tree.Exists("app"));
}

class KDirectoryRuleUnknownTest : public KDirectoryRuleTest,
                                  public ::testing::WithParamInterface<const char*> {};

TEST_P(KDirectoryRuleUnknownTest, IsAcceptedCountsAndDoesNothing) {
    tree.Write("app/a", "mine");
    Run("directory", std::string(GetParam()) + ",@T@/app");
    EXPECT_THAT(tree.List("app"), ElementsAre("f 0644 a \"mine\""));
    EXPECT_THAT(statuses.Lines(), IsEmpty());
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    AnOperation,
    KDirectoryRuleUnknownTest,
    ::testing::Values("remove", "delete ", " create", "mkdir", "erase")
);

} // namespace
