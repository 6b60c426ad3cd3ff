// SPDX-License-Identifier: MIT
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/SlotOf.h"

#include <ins/KServiceRule.h>

#include <gmock/gmock.h>

#include <type_traits>

namespace {

using KINS::KServiceRule;
using KTEST::PlaceWithoutLine;
using ::testing::ElementsAre;

class KServiceRuleTest : public KTEST::RuleTest {};

TEST_F(KServiceRuleTest, OverridesInTheSlotsOfItsBase) {
    using KTEST::SlotOf;
    EXPECT_EQ(2, SlotOf(&KServiceRule::Execute));
    EXPECT_EQ(4, SlotOf(&KServiceRule::Description));
    EXPECT_EQ(6, SlotOf(&KServiceRule::ParseRule));
}

TEST_F(KServiceRuleTest, IsAnInstallRuleThatCounts) {
    const KServiceRule rule(&manager, "start,a");
    EXPECT_STREQ("KInstallRule", rule.GetClassTag());
    EXPECT_TRUE(rule.ShouldCount());
    EXPECT_FALSE(std::is_copy_constructible_v<KServiceRule>);
}

class KServiceRuleRefusalTest : public KTEST::RuleTest,
                                public ::testing::WithParamInterface<const char*> {};

TEST_P(KServiceRuleRefusalTest, IsLoggedWholeAndIsError7000) {
    const std::string line = GetParam();
    const KSUP::KError error = RefusalOf("service", line);
    EXPECT_EQ(
        "400 7000.0 ins/KServiceRule:? ParseRule \"Invalid service rule\"", PlaceWithoutLine(error)
    );
    EXPECT_THAT(trace.Texts(400), ElementsAre(error.GetSummary().c_str()));
    EXPECT_THAT(
        LogLines(), ElementsAre("KINS::KServiceRule: Invalid service rule detected " + line)
    );
    EXPECT_EQ(0U, manager.GetRuleCount());
}

INSTANTIATE_TEST_SUITE_P(
    ALine,
    KServiceRuleRefusalTest,
    ::testing::Values(
        "",
        "install",
        "install,name,display",
        "install,name,display,program",
        "install,name,,program,arguments",
        "install,$serviceName$,display,program",
        "install,name,display,program,arguments,more"
    )
);

class KServiceRuleAcceptanceTest : public KTEST::RuleTest,
                                   public ::testing::WithParamInterface<const char*> {};

TEST_P(KServiceRuleAcceptanceTest, IsDescribedByItsWholeTextUnexpanded) {
    EXPECT_EQ(std::string("Service control ") + GetParam(), DescriptionOf("service", GetParam()));
    EXPECT_EQ(1U, manager.GetRuleCount());
}

INSTANTIATE_TEST_SUITE_P(
    ALine,
    KServiceRuleAcceptanceTest,
    ::testing::Values(
        "remove,myservice",
        "INSTALL,$serviceName$,a b,/opt/p/s,-x",
        "install,name",
        "restart,name",
        "start,name,,,"
    )
);

} // namespace
