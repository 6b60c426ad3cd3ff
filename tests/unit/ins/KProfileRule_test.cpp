// SPDX-License-Identifier: MIT
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/NameOfRow.h"
#include "../../support/SlotOf.h"

#include <ins/KProfileRule.h>

#include <gmock/gmock.h>

#include <type_traits>

namespace {

using KINS::KProfileRule;
using KTEST::Place;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KProfileRuleTest : public KTEST::RuleTest {};

TEST_F(KProfileRuleTest, OverridesInTheSlotsOfItsBase) {
    using KTEST::SlotOf;
    EXPECT_EQ(2, SlotOf(&KProfileRule::Execute));
    EXPECT_EQ(4, SlotOf(&KProfileRule::Description));
    EXPECT_EQ(6, SlotOf(&KProfileRule::ParseRule));
}

TEST_F(KProfileRuleTest, IsAnInstallRuleThatCounts) {
    const KProfileRule rule(&manager, "create,/x");
    EXPECT_STREQ("KInstallRule", rule.GetClassTag());
    EXPECT_TRUE(rule.ShouldCount());
    EXPECT_FALSE(std::is_copy_constructible_v<KProfileRule>);
}

struct RefusedLine {
    const char* name;
    const char* line;
    unsigned atLine;
    const char* information;
};

class KProfileRuleRefusalTest : public KTEST::RuleTest,
                                public ::testing::WithParamInterface<RefusedLine> {};

TEST_P(KProfileRuleRefusalTest, IsError7000AndNoRule) {
    const KSUP::KError error = RefusalOf("profile", GetParam().line);
    EXPECT_EQ(
        "48 7000.0 ins/KProfileRule:" + std::to_string(GetParam().atLine) + " ParseRule \"" +
            GetParam().information + '"',
        Place(error)
    );
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
    EXPECT_EQ(0U, manager.GetRuleCount());
    EXPECT_THAT(Added(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    ALineWith,
    KProfileRuleRefusalTest,
    ::testing::Values(
        RefusedLine{"NoField", "", 57, ""},
        RefusedLine{"OneField", "create", 57, "create"},
        RefusedLine{"ThreeFields", "put,/etc/app.ini,General", 57, "put,/etc/app.ini,General"},
        RefusedLine{"ThreeFieldsWithAMacro", "put,$os$,General", 57, "put,lin,General"},
        RefusedLine{"ThreeFieldsOfAnUnknownOperation", "rename,a,b", 57, "rename,a,b"},
        RefusedLine{"SixFields", "put,a,b,c,d,e", 57, "put,a,b,c,d,e"},
        RefusedLine{"AValueThatIsEmpty", "remove_file,a,b,", 57, "remove_file,a,b,"},
        RefusedLine{"AnUnknownOperation", "rename,/etc/app.ini", 75, "rename"},
        RefusedLine{"AnUnknownOperationInUpperCase", "RENAME,/etc/app.ini,a,b,c", 75, "rename"},
        RefusedLine{"ABlankInFrontOfTheOperation", " put,a,b,c,d", 75, " put"}
    ),
    KTEST::NameOfRow()
);

struct DescribedLine {
    const char* name;
    const char* line;
    const char* description;
};

class KProfileRuleDescriptionTest : public KTEST::RuleTest,
                                    public ::testing::WithParamInterface<DescribedLine> {};

TEST_P(KProfileRuleDescriptionTest, NamesWhatTheLineFilled) {
    world.GivenKey("profileNested", "$os$");
    world.GivenKey("profileTwice", "$profileNested$");
    EXPECT_EQ(GetParam().description, DescriptionOf("profile", GetParam().line));
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    KProfileRuleDescriptionTest,
    ::testing::Values(
        DescribedLine{"ACreation", "create,/etc/app.ini", "Create profile /etc/app.ini"},
        DescribedLine{"ACreationInUpperCase", "CREATE,/etc/App.ini", "Create profile /etc/App.ini"},
        DescribedLine{
            "ACreationIgnoresFurtherFields", "create,/a,extra,fields", "Create profile /a"},
        DescribedLine{"APut", "put,/a,General,LogLevel,3", "Put profile option LogLevel=3"},
        DescribedLine{
            "APutInUpperCase",
            "PUT,/a,General,LogLevel,Three",
            "Put profile option LogLevel=Three"},
        DescribedLine{
            "APutOfFourFieldsLeavesThemEmpty", "put,/a,General,LogLevel", "Put profile option ="},
        DescribedLine{"APutOfTwoFieldsLeavesThemEmpty", "put,/a", "Put profile option ="},
        DescribedLine{
            "ARemovalShowsTheMatch", "remove_file,/a,Files,.so", "Put profile option =.so"},
        DescribedLine{
            "ARemovalOfFiveFieldsLeavesThemEmpty", "remove_file,/a,b,c,d", "Put profile option ="},
        DescribedLine{
            "KeyAndValueExpandTwice",
            "put,/a,b,$profileNested$,x$profileNested$",
            "Put profile option lin=xlin"},
        DescribedLine{
            "KeyAndValueExpandNotThrice", "put,/a,b,$profileTwice$,v", "Put profile option $os$=v"},
        DescribedLine{
            "AMatchExpandsTwice", "remove_file,/a,b,$profileNested$", "Put profile option =lin"},
        DescribedLine{"APathExpandsOnce", "create,/$profileNested$", "Create profile /$os$"}
    ),
    KTEST::NameOfRow()
);

TEST_F(KProfileRuleTest, TheLineIsExpandedByTheConstructorAndItsFieldsAgainWhenParsed) {
    world.GivenKey("profileOuter", "$profileInner$");
    world.GivenKey("profileInner", "constructed");
    KProfileRule rule(&manager, "put,/a,b,$profileOuter$,$profileInner$");
    world.GivenKey("profileOuter", "too late");
    world.GivenKey("profileInner", "parsed");
    rule.Initialize();
    EXPECT_STREQ("Put profile option parsed=constructed", rule.Description().c_str());
}

} // namespace
