// SPDX-License-Identifier: MIT
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/SlotOf.h"

#include <ins/KProcessRule.h>

#include <gmock/gmock.h>

#include <type_traits>

namespace {

using KINS::KProcessRule;
using KTEST::PlaceWithoutLine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KProcessRuleTest : public KTEST::RuleTest {};

TEST_F(KProcessRuleTest, OverridesInTheSlotsOfItsBase) {
    using KTEST::SlotOf;
    EXPECT_EQ(2, SlotOf(&KINS::KProcessRuleBase::Execute));
    EXPECT_EQ(4, SlotOf(&KINS::KProcessRuleBase::Description));
    EXPECT_EQ(6, SlotOf(&KINS::KProcessRuleBase::ParseRule));
}

TEST_F(KProcessRuleTest, IsAnInstallRuleThatCounts) {
    const KProcessRule rule(&manager, "start,true");
    EXPECT_STREQ("KInstallRule", rule.GetClassTag());
    EXPECT_TRUE(rule.ShouldCount());
    EXPECT_TRUE((std::is_base_of_v<KINS::KProcessRuleBase, KProcessRule>));
    EXPECT_FALSE(std::is_copy_constructible_v<KProcessRule>);
}

TEST_F(KProcessRuleTest, TheDescriptionHasTheWholeTextUnexpanded) {
    EXPECT_EQ(
        "Execute command start,/etc/init.d/$serviceName$ restart",
        DescriptionOf("process", "start,/etc/init.d/$serviceName$ restart")
    );
}

class KProcessRuleRefusalTest : public KTEST::RuleTest,
                                public ::testing::WithParamInterface<const char*> {};

TEST_P(KProcessRuleRefusalTest, IsError7000WithTheTextAndNoLogLine) {
    const std::string line = GetParam();
    const KSUP::KError error = RefusalOf("process", line);
    EXPECT_EQ(
        "48 7000.0 ins/KProcessRuleBase:? ParseRule \"" + line + '"', PlaceWithoutLine(error)
    );
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
    EXPECT_EQ(0U, manager.GetRuleCount());
    EXPECT_THAT(LogLines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    ALine,
    KProcessRuleRefusalTest,
    ::testing::Values("", "start", "start,", "start,echo a,b", "stop,$os$,x", ",,")
);

class KProcessRuleAcceptanceTest : public KTEST::RuleTest,
                                   public ::testing::WithParamInterface<const char*> {};

TEST_P(KProcessRuleAcceptanceTest, IsAddedWhateverItsAction) {
    EXPECT_EQ(std::string("Execute command ") + GetParam(), DescriptionOf("process", GetParam()));
    EXPECT_EQ(1U, manager.GetRuleCount());
}

INSTANTIATE_TEST_SUITE_P(
    ALine,
    KProcessRuleAcceptanceTest,
    ::testing::Values("start,true", "stop,daemon", "Start,true", "restart,daemon", "start,,true")
);

} // namespace
