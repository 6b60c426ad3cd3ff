// SPDX-License-Identifier: MIT
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/Language.h"
#include "../../support/NameOfRow.h"
#include "../../support/SlotOf.h"
#include "Injected.h"

#include <ins/KServiceRule.h>
#include <sup++/SvcMessage.h>

#include <gmock/gmock.h>

#include <type_traits>

namespace {

using KINS::KServiceRule;
using KTEST::NameOfRow;
using KTEST::PlaceWithoutLine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KServiceRuleTest : public KTEST::RuleTest {};

TEST_F(KServiceRuleTest, OverridesInTheSlotsOfItsBase) {
    using KTEST::SlotOf;
    EXPECT_EQ(SlotOf(&KServiceRule::Execute), 2);
    EXPECT_EQ(SlotOf(&KServiceRule::Description), 4);
    EXPECT_EQ(SlotOf(&KServiceRule::ParseRule), 6);
}

TEST_F(KServiceRuleTest, IsAnInstallRuleThatCounts) {
    const KServiceRule rule(&manager, "start,a");
    EXPECT_STREQ(rule.GetClassTag(), "KInstallRule");
    EXPECT_TRUE(rule.ShouldCount());
    EXPECT_FALSE(std::is_copy_constructible_v<KServiceRule>);
}

class KServiceRuleRefusalTest : public KTEST::RuleTest,
                                public ::testing::WithParamInterface<const char*> {};

TEST_P(KServiceRuleRefusalTest, IsLoggedWholeAndIsError7000) {
    const std::string line = GetParam();
    const KSUP::KError error = RefusalOf("service", line);
    EXPECT_EQ(
        PlaceWithoutLine(error), "400 7000.0 ins/KServiceRule:? ParseRule \"Invalid service rule\""
    );
    EXPECT_THAT(trace.Texts(400), ElementsAre(error.GetSummary().c_str()));
    EXPECT_THAT(
        LogLines(), ElementsAre("KINS::KServiceRule: Invalid service rule detected " + line)
    );
    EXPECT_EQ(manager.GetRuleCount(), 0U);
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
    EXPECT_EQ(DescriptionOf("service", GetParam()), std::string("Service control ") + GetParam());
    EXPECT_EQ(manager.GetRuleCount(), 1U);
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

// Running. The service calls are the test's own: they note what they are asked and answer with a
// status, so nothing here touches a service.

constexpr const char* prefix = "KINS::KServiceRule: ";

class KServiceRuleRunTest : public KTEST::RuleTest {
  protected:
    KServiceRuleRunTest() {
        EXPECT_EQ(PrvInsLoadMessage(), 0U);
        inject.SvcCreateService =
            [this](unsigned flags, auto name, auto first, auto second, auto third) {
                Note("create", flags, name);
                calls.back() += std::string(" [") + first + "] [" + second + "] [" + third + "]";
                return status.create;
            };
        inject.SvcDeleteService = [this](unsigned flags, const char* name) {
            return Note("delete", flags, name), status.remove;
        };
        inject.SvcStartService = [this](unsigned flags, const char* name) {
            return Note("start", flags, name), status.start;
        };
        inject.SvcStopService = [this](unsigned flags, const char* name) {
            return Note("stop", flags, name), status.stop;
        };
        inject.SvcStopServiceEx = [this](unsigned flags, const char* name, unsigned timeoutMs) {
            Note("stopEx", flags, name);
            calls.back() += ' ' + std::to_string(timeoutMs);
            return status.stopEx;
        };
        inject.SvcGetServiceStatus = [this](unsigned flags, const char* name, unsigned* state) {
            Note("query", flags, name);
            calls.back() += " preset " + std::to_string(*state);
            *state = status.query == 0 ? serviceState : *state;
            return status.query;
        };
    }
    ~KServiceRuleRunTest() override { PrvInsUnloadMessage(); }

    void Note(const char* call, unsigned flags, const char* name) {
        calls.push_back(std::string(call) + ' ' + std::to_string(flags) + ' ' + name);
    }
    /// The rule's own lines of the setup log, without its name.
    std::vector<std::string> RuleLines() const {
        std::vector<std::string> lines;
        for (const std::string& line : LogLines()) {
            if (line.starts_with(prefix)) {
                lines.push_back(line.substr(std::string(prefix).size()));
            }
        }
        return lines;
    }

    struct {
        unsigned create = 0;
        unsigned remove = 0;
        unsigned start = 0;
        unsigned stop = 0;
        unsigned stopEx = 0;
        unsigned query = 0;
    } status;
    unsigned serviceState = 1;
    std::vector<std::string> calls;
    KTEST::Language english{"C"};
    KTEST::Injection inject;
};

struct DoneRow {
    const char* name;
    const char* line;
    std::vector<std::string> calls;
    std::vector<std::string> logged;
    std::vector<std::string> statuses;
};

class KServiceRuleDoneTest : public KServiceRuleRunTest,
                             public ::testing::WithParamInterface<DoneRow> {};

TEST_P(KServiceRuleDoneTest, CallsLogsAndReports) {
    const DoneRow& row = GetParam();
    Run("service", row.line);
    EXPECT_EQ(calls, row.calls);
    EXPECT_EQ(RuleLines(), row.logged);
    EXPECT_EQ(statuses.Lines(), row.statuses);
    EXPECT_THAT(trace.Messages(), IsEmpty());
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    ARule,
    KServiceRuleDoneTest,
    ::testing::Values(
        DoneRow{
            "ThatInstalls",
            "install,dps,DPS load,/opt/dps/dpsd,-c \"/etc/d p\" 50%",
            {"create 0 dps [DPS load] [/opt/dps/dpsd] [-c \"/etc/d p\" 50%]"},
            {"Installing service dps DPS load /opt/dps/dpsd -c \"/etc/d p\" 50%"},
            {"- Installing service"}},
        DoneRow{
            "OfTwoFieldsThatInstalls",
            "install,dps",
            {"create 0 dps [] [] []"},
            {"Installing service dps   "},
            {"- Installing service"}},
        DoneRow{
            "InCapitalsThatInstalls",
            "INSTALL,dps",
            {"create 0 dps [] [] []"},
            {"Installing service dps   "},
            {"- Installing service"}},
        DoneRow{
            "InBothCasesThatInstalls",
            "Install,Dps",
            {"create 0 Dps [] [] []"},
            {"Installing service Dps   "},
            {"- Installing service"}},
        DoneRow{
            "WithMacrosThatInstalls",
            "install,$serviceName$,$os$,/$os$,$unknown$",
            {"create 0 inspp-unit-test [lin] [/lin] [$unknown$]"},
            {"Installing service inspp-unit-test lin /lin $unknown$"},
            {"- Installing service"}},
        DoneRow{
            "ThatRemoves",
            "remove,dps",
            {"stopEx 0 dps 30000", "delete 0 dps"},
            {},
            {"- Removing service"}},
        DoneRow{
            "OfFiveFieldsThatRemoves",
            "Remove,dps,a,b,c",
            {"stopEx 0 dps 30000", "delete 0 dps"},
            {},
            {"- Removing service"}},
        DoneRow{
            "ThatStarts",
            "start,dps",
            {"start 0 dps"},
            {"Starting service: dps"},
            {"- Starting service"}},
        DoneRow{
            "ThatStops",
            "STOP,$serviceName$",
            {"stop 0 inspp-unit-test"},
            {"Stopping service: inspp-unit-test"},
            {"- Stopping service"}}
    ),
    NameOfRow()
);

struct FailedRow {
    const char* name;
    const char* line;
    unsigned code;
    const char* place;
    std::vector<std::string> logged;
};

class KServiceRuleFailureTest : public KServiceRuleRunTest,
                                public ::testing::WithParamInterface<FailedRow> {};

TEST_P(KServiceRuleFailureTest, IsLoggedSaidAndThrown) {
    const FailedRow& row = GetParam();
    status.create = status.start = status.stop = row.code;
    const KSUP::KError error = KTEST::ErrorOf([&] { Run("service", row.line); });
    EXPECT_EQ(PlaceWithoutLine(error), row.place);
    EXPECT_EQ(RuleLines(), row.logged);
    EXPECT_THAT(
        trace.Messages(),
        ElementsAre(KTEST::TraceRecorder::Message{400, error.GetSummary().c_str()})
    );
    EXPECT_EQ(manager.GetCompletedCount(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    KServiceRuleFailureTest,
    ::testing::Values(
        FailedRow{
            "Creating",
            "install,dps,a,/b,c",
            17,
            "400 17.0 ins/KServiceRule:? InstallService \"Failed to install service\"",
            {"Installing service dps a /b c", "Failed to create service  ('17 (0x11)')"}},
        FailedRow{
            "CreatingWithTheGreatestStatus",
            "install,dps",
            4294967295U,
            "400 4294967295.0 ins/KServiceRule:? InstallService \"Failed to install service\"",
            {"Installing service dps   ", "Failed to create service  ('4294967295 (0xffffffff)')"}},
        FailedRow{
            "Starting",
            "start,dps",
            5,
            "400 5.0 ins/KServiceRule:? StartService",
            {"Starting service: dps"}},
        FailedRow{
            "Stopping",
            "stop,dps",
            182,
            "400 182.0 ins/KServiceRule:? StopService",
            {"Stopping service: dps"}},
        FailedRow{
            "AnUnknownAction",
            "Restart,dps",
            0,
            "400 7000.0 ins/KServiceRule:? Execute",
            {"Unrecognized service control rule restart"}},
        FailedRow{
            "AnActionThatIsAMacro",
            "$os$,dps",
            0,
            "400 7000.0 ins/KServiceRule:? Execute",
            {"Unrecognized service control rule $os$"}}
    ),
    NameOfRow()
);

struct RemovalRow {
    const char* name;
    unsigned stopStatus;
    unsigned deleteStatus;
    std::vector<std::string> logged;
};

class KServiceRuleRemovalTest : public KServiceRuleRunTest,
                                public ::testing::WithParamInterface<RemovalRow> {};

TEST_P(KServiceRuleRemovalTest, IsLoggedAndTheRunGoesOn) {
    status.stopEx = GetParam().stopStatus;
    status.remove = GetParam().deleteStatus;
    EXPECT_NO_THROW(Run("service", "remove,dps"));
    EXPECT_THAT(calls, ElementsAre("stopEx 0 dps 30000", "delete 0 dps"));
    EXPECT_EQ(RuleLines(), GetParam().logged);
    EXPECT_THAT(trace.Messages(), IsEmpty());
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    WhereFails,
    KServiceRuleRemovalTest,
    ::testing::Values(
        RemovalRow{"TheStop", 183, 0, {"Failed to stop service 183 (0xb7)"}},
        RemovalRow{"TheDeletion", 0, 181, {"Failed to delete service 181 (0xb5)"}},
        RemovalRow{
            "Both",
            180,
            180,
            {"Failed to stop service 180 (0xb4)", "Failed to delete service 180 (0xb4)"}}
    ),
    NameOfRow()
);

TEST_F(KServiceRuleRunTest, TheActionsAnswerWith0) {
    KServiceRule rule(&manager, "start,dps");
    rule.Initialize();
    EXPECT_EQ(rule.InstallService(), 0U);
    EXPECT_EQ(rule.StartService(), 0U);
    EXPECT_EQ(rule.StopService(), 0U);
    rule.RemoveService();
    EXPECT_THAT(
        calls,
        ElementsAre(
            "create 0 dps [] [] []",
            "start 0 dps",
            "stop 0 dps",
            "stopEx 0 dps 30000",
            "delete 0 dps"
        )
    );
}

TEST_F(KServiceRuleRunTest, FieldsAreExpandedWhenTheRuleIsParsedTheActionIsNot) {
    world.GivenKey("serviceWhen", "constructed");
    KServiceRule rule(&manager, "install,$serviceWhen$,a,b,c");
    world.GivenKey("serviceWhen", "parsed");
    rule.Initialize();
    world.GivenKey("serviceWhen", "executed");
    rule.Execute();
    EXPECT_THAT(calls, ElementsAre("create 0 parsed [a] [b] [c]"));
}

TEST_F(KServiceRuleRunTest, TextsAreExpandedOnce) {
    world.GivenKey("serviceNested", "$os$");
    Run("service", "install,a,$serviceNested$,$serviceNested$,$serviceNested$");
    EXPECT_THAT(calls, ElementsAre("create 0 a [$os$] [$os$] [$os$]"));
}

struct StateRow {
    const char* name;
    unsigned state;
    bool isRunning;
};

class KServiceRuleStateTest : public KServiceRuleRunTest,
                              public ::testing::WithParamInterface<StateRow> {};

TEST_P(KServiceRuleStateTest, OnlyState4OfTheProductsServiceIsRunning) {
    KServiceRule rule(&manager, "start,another");
    rule.Initialize();
    serviceState = GetParam().state;
    EXPECT_EQ(rule.IsServiceRunning(), GetParam().isRunning);
    EXPECT_THAT(calls, ElementsAre("query 0 inspp-unit-test preset 1"));
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    KServiceRuleStateTest,
    ::testing::Values(
        StateRow{"Stopped", 1, false},
        StateRow{"Starting", 2, false},
        StateRow{"Stopping", 3, false},
        StateRow{"Running", 4, true},
        StateRow{"AnythingElse", 5, false}
    ),
    NameOfRow()
);

TEST_F(KServiceRuleRunTest, AServiceThatCannotBeAskedAboutDoesNotRun) {
    KServiceRule rule(&manager, "start,another");
    rule.Initialize();
    serviceState = 4;
    status.query = 180;
    EXPECT_FALSE(rule.IsServiceRunning());
}

} // namespace
