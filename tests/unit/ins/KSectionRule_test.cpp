// SPDX-License-Identifier: MIT
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/SlotOf.h"

#include <ins/KSectionRule.h>
#include <sup++/KErrorSource.h>

#include <gmock/gmock.h>

#include <stdexcept>
#include <type_traits>

namespace {

using KINS::KSectionRule;
using KSUP::KString;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Records which sections are asked for instead of reading a script.
class SectionManager : public KINS::KInstallRuleManager {
  public:
    using KInstallRuleManager::KInstallRuleManager;
    void LoadSection(const KString& section) override {
        loaded.emplace_back(section.c_str());
        if (refuse) {
            refuse();
        }
    }
    std::vector<std::string> loaded;
    std::function<void()> refuse;
};

class KSectionRuleTest : public KTEST::EngineTest {
  protected:
    SectionManager manager{installer.get()};
};

TEST_F(KSectionRuleTest, OverridesInTheSlotsOfItsBase) {
    using KTEST::SlotOf;
    EXPECT_EQ(SlotOf(&KSectionRule::Execute), 2);
    EXPECT_EQ(SlotOf(&KSectionRule::Initialize), 3);
    EXPECT_EQ(SlotOf(&KSectionRule::Description), 4);
    EXPECT_EQ(SlotOf(&KSectionRule::ShouldCount), 5);
}

TEST_F(KSectionRuleTest, IsAnInstallRuleThatDoesNotCount) {
    const KSectionRule rule(&manager, "common");
    EXPECT_STREQ(rule.GetClassTag(), "KInstallRule");
    EXPECT_FALSE(rule.ShouldCount());
    EXPECT_FALSE(std::is_copy_constructible_v<KSectionRule>);
}

TEST_F(KSectionRuleTest, ConstructingLoadsNothing) {
    const KSectionRule rule(&manager, "common");
    EXPECT_THAT(manager.loaded, IsEmpty());
}

TEST_F(KSectionRuleTest, InitializeLoadsTheSectionOnceHoweverOftenItIsCalled) {
    KSectionRule rule(&manager, "common");
    rule.Initialize();
    rule.Initialize();
    EXPECT_THAT(manager.loaded, ElementsAre("common"));
}

TEST_F(KSectionRuleTest, TheWholeLineIsTheName) {
    KSectionRule rule(&manager, "common,with, commas");
    rule.Initialize();
    EXPECT_THAT(manager.loaded, ElementsAre("common,with, commas"));
    EXPECT_STREQ(rule.Description().c_str(), "Include section common,with, commas");
}

TEST_F(KSectionRuleTest, TheNameIsExpandedOnceByTheConstructor) {
    world.GivenKey("sectionName", "$os$");
    KSectionRule nested(&manager, "$sectionName$");
    KSectionRule rule(&manager, "for-$os$");
    world.GivenKey("sectionName", "later");
    rule.Initialize();
    nested.Initialize();
    EXPECT_THAT(manager.loaded, ElementsAre("for-lin", "$os$"));
    EXPECT_STREQ(rule.Description().c_str(), "Include section for-lin");
}

TEST_F(KSectionRuleTest, ExecuteDoesNothing) {
    manager.SetCallback(statuses.Callback());
    KSectionRule rule(&manager, "common");
    rule.Initialize();
    rule.Execute();
    EXPECT_THAT(manager.loaded, ElementsAre("common"));
    EXPECT_THAT(statuses.Lines(), IsEmpty());
}

TEST_F(KSectionRuleTest, AKErrorComesOutAndLeavesTheSectionToBeTriedAgain) {
    static constexpr KSUP::KErrorSource source("tests");
    manager.refuse = [] { source.Raise(48, 7000, "the included line"); };
    KSectionRule rule(&manager, "common");
    const KSUP::KError error = KTEST::ErrorOf([&] { rule.Initialize(); });
    EXPECT_STREQ(error.GetInfo().GetString().c_str(), "the included line");
    manager.refuse = nullptr;
    rule.Initialize();
    rule.Initialize();
    EXPECT_THAT(manager.loaded, ElementsAre("common", "common"));
}

TEST_F(KSectionRuleTest, AnotherExceptionComesOutAndCountsAsLoaded) {
    manager.refuse = [] { throw std::runtime_error("out of something"); };
    KSectionRule rule(&manager, "common");
    EXPECT_THROW(rule.Initialize(), std::runtime_error);
    manager.refuse = nullptr;
    rule.Initialize();
    EXPECT_THAT(manager.loaded, ElementsAre("common"));
}

} // namespace
