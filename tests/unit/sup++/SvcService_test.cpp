// SPDX-License-Identifier: MIT
//
// What the calls refuse before they look at the system. Everything else they do happens to the
// machine, and is tested in tests/machine.
#include "../../support/NameOfRow.h"
#include "../../support/TraceRecorder.h"
#include "Common.h"

#include <sup++/SvcService.h>

#include <functional>
#include <thread>

namespace KTEST {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

struct CallRow {
    const char* name;
    std::function<unsigned(unsigned flags, const char* service)> call;
};

const CallRow calls[] = {
    {"Create",
     [](unsigned flags, auto name) { return SvcCreateService(flags, name, "", "/a", ""); }},
    {"Delete", [](unsigned flags, auto name) { return SvcDeleteService(flags, name); }},
    {"Start", [](unsigned flags, auto name) { return SvcStartService(flags, name); }},
    {"Stop", [](unsigned flags, auto name) { return SvcStopService(flags, name); }},
    {"StopEx", [](unsigned flags, auto name) { return SvcStopServiceEx(flags, name, 1000); }},
    {"GetStatus",
     [](unsigned flags, auto name) {
         unsigned state = 77;
         const unsigned status = SvcGetServiceStatus(flags, name, &state);
         return state == 77 ? status : 0;
     }},
};

class SvcServiceRefusalTest : public testing::TestWithParam<CallRow> {
  protected:
    TraceRecorder trace;
};

TEST_P(SvcServiceRefusalTest, NamesThatCannotBeAreStatus36) {
    for (const std::string& name :
         {std::string(),
          std::string("/a"),
          std::string("a/b"),
          std::string("-a"),
          std::string(".a"),
          std::string("a b"),
          std::string("ä"),
          std::string(256, 'a')}) {
        EXPECT_EQ(GetParam().call(0, name.c_str()), 36U) << name;
        EXPECT_THAT(SvcGetServiceErrorText(), HasSubstr('"' + name + '"'));
    }
}

TEST_P(SvcServiceRefusalTest, NoNameAndReservedFlagsAreStatus36) {
    EXPECT_EQ(GetParam().call(0, nullptr), 36U);
    EXPECT_EQ(GetParam().call(1, "inspp-no-such"), 36U);
}

TEST_P(SvcServiceRefusalTest, TheReasonIsSaidAndKept) {
    EXPECT_EQ(GetParam().call(0, "a/b"), 36U);
    EXPECT_STREQ(
        SvcGetServiceErrorText(),
        "\"a/b\" cannot be the name of a service: only ASCII letters, digits and :-_.\\@ can be in "
        "it"
    );
    EXPECT_THAT(
        trace.Texts(24),
        ElementsAre(AllOf(HasSubstr("Error 36"), HasSubstr(SvcGetServiceErrorText())))
    );
}

INSTANTIATE_TEST_SUITE_P(Of, SvcServiceRefusalTest, testing::ValuesIn(calls), NameOfRow());

TEST(SvcServiceTest, CreateRefusesNullTexts) {
    EXPECT_EQ(SvcCreateService(0, "inspp-no-such", nullptr, "/a", ""), 36U);
    EXPECT_EQ(SvcCreateService(0, "inspp-no-such", "", nullptr, ""), 36U);
    EXPECT_EQ(SvcCreateService(0, "inspp-no-such", "", "/a", nullptr), 36U);
}

TEST(SvcServiceTest, TheStateNeedsAPlace) {
    EXPECT_EQ(SvcGetServiceStatus(0, "inspp-no-such", nullptr), 36U);
}

TEST(SvcServiceTest, TheErrorTextBelongsToTheThread) {
    EXPECT_EQ(SvcStartService(0, "my/own"), 36U);
    std::string before;
    std::string after;
    std::thread([&] {
        before = SvcGetServiceErrorText();
        static_cast<void>(SvcStartService(0, "an/other"));
        after = SvcGetServiceErrorText();
    }).join();
    EXPECT_EQ(before, "");
    EXPECT_THAT(after, HasSubstr("an/other"));
    EXPECT_THAT(SvcGetServiceErrorText(), HasSubstr("my/own"));
}

TEST(SvcServiceTest, LeavingServicesIsSwitchedWith0And1) {
    EXPECT_EQ(SvcSetOfflineServices(0, 1), 0U);
    EXPECT_EQ(SvcSetOfflineServices(0, 0), 0U);
    EXPECT_EQ(SvcSetOfflineServices(0, 2), 36U);
    EXPECT_EQ(SvcSetOfflineServices(1, 0), 36U);
}

TEST(SvcServiceTest, WithoutLeftServicesTheEnumerationEndsAtOnce) {
    unsigned cursor = 0;
    unsigned state = 77;
    char buffer[8] = "as it w";
    EXPECT_EQ(SvcEnumerateLeftServices(0, &cursor, sizeof(buffer), buffer, &state), 64U);
    EXPECT_STREQ(buffer, "as it w");
    EXPECT_EQ(state, 77U);
    EXPECT_EQ(SvcEnumerateLeftServices(1, &cursor, sizeof(buffer), buffer, &state), 36U);
    EXPECT_EQ(SvcEnumerateLeftServices(0, nullptr, sizeof(buffer), buffer, &state), 36U);
    EXPECT_EQ(SvcEnumerateLeftServices(0, &cursor, sizeof(buffer), nullptr, &state), 36U);
    EXPECT_EQ(SvcEnumerateLeftServices(0, &cursor, sizeof(buffer), buffer, nullptr), 36U);
}

} // namespace
} // namespace KTEST
