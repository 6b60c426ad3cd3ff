// SPDX-License-Identifier: MIT
#include "../../support/TraceRecorder.h"
#include "Common.h"

#include <sup++/KErrorSource.h>

#include <cerrno>

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KVariant;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr KSUP::KErrorSource sample{"tests/KSample"};

class KErrorSourceTest : public testing::Test {
  protected:
    TraceRecorder trace;
};

unsigned lineOfRaise = 0;

[[noreturn]] void RaiseFromHere() {
    lineOfRaise = __LINE__ + 1;
    sample.Raise(KSUP::TraceLevel::rule, KSUP::ErrorCode::malformedRule, "copy,only");
}

TEST_F(KErrorSourceTest, RaisesWithWhatItIsGiven) {
    const KError error = ErrorOf([] { sample.Raise(400, 172, KVariant("info"), 57, "Execute"); });
    EXPECT_EQ(error.GetLevel(), 400U);
    EXPECT_EQ(error.GetCode(), 172U);
    EXPECT_EQ(error.GetSubCode(), 0U);
    EXPECT_EQ(error.GetLine(), 57U);
    EXPECT_STREQ(error.GetFile(), "tests/KSample");
    EXPECT_STREQ(error.GetFunction(), "Execute");
    EXPECT_EQ(error.GetDriver(), nullptr);
    EXPECT_EQ(error.GetInfo().GetString(), "info");
}

TEST_F(KErrorSourceTest, NamesTheCallersOwnFunctionAndLine) {
    const KError error = ErrorOf([] { RaiseFromHere(); });
    EXPECT_STREQ(error.GetFunction(), "RaiseFromHere");
    EXPECT_EQ(error.GetLine(), lineOfRaise);
}

TEST_F(KErrorSourceTest, AttachesNothingUnlessItIsGiven) {
    EXPECT_FALSE(ErrorOf([] { sample.Raise(48, 66); }).HasInfo());
}

TEST_F(KErrorSourceTest, SaysTheSummaryOnceAtTheSameLevel) {
    const KError error = ErrorOf([] { RaiseFromHere(); });
    const TraceRecorder::Message expected{48, error.GetSummary().c_str()};
    EXPECT_THAT(trace.Messages(), ElementsAre(expected));
}

TEST_F(KErrorSourceTest, SaysTheSummaryAsItStands) {
    ErrorOf([] { sample.Raise(48, 7000, KVariant("100%s %n %d")); });
    EXPECT_THAT(trace.Texts(48), ElementsAre(HasSubstr("100%s %n %d")));
}

TEST_F(KErrorSourceTest, ExplainsASystemsErrorWithPathAndText) {
    const KError error = ErrorOf([] { sample.RaiseSystem(ENOSPC, "/opt/dps/x.so"); });
    EXPECT_EQ(error.GetCode(), unsigned{ENOSPC});
    EXPECT_EQ(error.GetLevel(), 24U);
    EXPECT_STREQ(error.GetFile(), "tests/KSample");
    EXPECT_EQ(error.GetInfo().GetString(), "/opt/dps/x.so: No space left on device");
    EXPECT_THAT(trace.Texts(24), ElementsAre(error.GetSummary().c_str()));
}

TEST_F(KErrorSourceTest, KeepsThePathOfASystemsErrorWhole) {
    const std::string path = "/opt/" + std::string(5000, 'd') + "/\n\xff";
    const KError error = ErrorOf([&] { sample.RaiseSystem(EACCES, path); });
    EXPECT_EQ(error.GetInfo().GetString(), path + ": Permission denied");
    EXPECT_THAT(error.GetSummary().c_str(), testing::Not(HasSubstr("\n")));
}

TEST_F(KErrorSourceTest, NamesTheFunctionOfASystemsError) {
    const KError error = ErrorOf([] { sample.RaiseSystem(EIO, "/x", 12, "Close"); });
    EXPECT_STREQ(error.GetFunction(), "Close");
    EXPECT_EQ(error.GetLine(), 12U);
}

} // namespace
} // namespace KTEST
