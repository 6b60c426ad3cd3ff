// SPDX-License-Identifier: MIT
#include "Common.h"

#include <sup++/KError.h>
#include <sup++/KErrorSource.h>

#include <cctype>
#include <type_traits>
#include <typeinfo>

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KErrorBase;
using KSUP::KString;
using KSUP::KVariant;
using testing::HasSubstr;

KError SampleError() {
    return {48, 7000, 3, 175, "ins/KFileRule", "ParseRule", nullptr};
}

TEST(KErrorTest, CarriesWhatItWasMadeOf) {
    const KError error = SampleError();
    EXPECT_EQ(error.GetLevel(), 48U);
    EXPECT_EQ(error.GetCode(), 7000U);
    EXPECT_EQ(error.GetSubCode(), 3U);
    EXPECT_EQ(error.GetLine(), 175U);
    EXPECT_STREQ(error.GetFile(), "ins/KFileRule");
    EXPECT_STREQ(error.GetFunction(), "ParseRule");
    EXPECT_EQ(error.GetDriver(), nullptr);
}

TEST(KErrorTest, CarriesTheDriverItIsGiven) {
    int standIn = 0;
    const auto* driver = reinterpret_cast<const KSUP::KDriver*>(&standIn);
    EXPECT_EQ(KError(1, 2, 3, 4, "f", "g", driver).GetDriver(), driver);
}

TEST(KErrorTest, CopiesTheTextsOfItsPlace) {
    std::string file = "ins/KServiceRule-with-a-long-name";
    std::string function = "Execute-with-a-long-name";
    const KError error(400, 1, 0, 1, file.c_str(), function.c_str(), nullptr);
    file.assign(file.size(), 'x');
    function.assign(function.size(), 'x');
    EXPECT_STREQ(error.GetFile(), "ins/KServiceRule-with-a-long-name");
    EXPECT_STREQ(error.GetFunction(), "Execute-with-a-long-name");
}

TEST(KErrorTest, TakesNullTextsAsEmptyOnes) {
    const KError error(1, 2, 3, 4, nullptr, nullptr, nullptr);
    EXPECT_STREQ(error.GetFile(), "");
    EXPECT_STREQ(error.GetFunction(), "");
    EXPECT_THAT(error.GetSummary().c_str(), HasSubstr("2"));
}

TEST(KErrorTest, HasNoInformationUntilSomeIsAttached) {
    KError error = SampleError();
    EXPECT_FALSE(error.HasInfo());
    EXPECT_EQ(error.GetInfo().GetType(), 0U);
    error.SetInfo(KVariant("file,copy"));
    EXPECT_TRUE(error.HasInfo());
    EXPECT_EQ(error.GetInfo().GetType(), 4U);
    EXPECT_EQ(error.GetInfo().GetString(), "file,copy");
    error.SetInfo(KVariant("other"));
    EXPECT_EQ(error.GetInfo().GetString(), "other");
}

TEST(KErrorTest, CopyingNeverThrows) {
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<KError>);
    EXPECT_TRUE(std::is_nothrow_copy_assignable_v<KError>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<KError>);
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<KErrorBase>);
    EXPECT_TRUE(std::is_nothrow_copy_assignable_v<KErrorBase>);
}

TEST(KErrorTest, ACopyCarriesTheSameAndKeepsItsOwnInformation) {
    KError original = SampleError();
    original.SetInfo(KVariant("first"));
    KError copy(original);
    KError assigned(1, 1, 1, 1, "", "", nullptr);
    assigned = original;
    original.SetInfo(KVariant("second"));
    EXPECT_EQ(copy.GetInfo().GetString(), "first");
    EXPECT_EQ(assigned.GetInfo().GetString(), "first");
    EXPECT_EQ(assigned.GetLine(), 175U);
    copy.SetInfo(KVariant("third"));
    EXPECT_EQ(original.GetInfo().GetString(), "second");
}

TEST(KErrorTest, IsUsableWhereItWasMovedFrom) {
    KError original = SampleError();
    const KError moved(std::move(original));
    EXPECT_EQ(moved.GetCode(), 7000U);
    EXPECT_STREQ(moved.GetFile(), "ins/KFileRule");
    original = moved; // NOLINT(bugprone-use-after-move): what is tested
    EXPECT_EQ(original.GetCode(), 7000U);
}

TEST(KErrorTest, IsCaughtAsItselfAndAsItsBase) {
    EXPECT_THROW(throw SampleError(), KError);
    try {
        throw SampleError();
    } catch (const KErrorBase& error) {
        EXPECT_EQ(error.GetCode(), 7000U);
        EXPECT_STREQ(typeid(error).name(), typeid(KError).name());
        EXPECT_NE(error.GetSummary(), "");
    }
    EXPECT_TRUE((std::is_base_of_v<KSUP::KBase, KErrorBase>));
    EXPECT_FALSE((std::is_base_of_v<std::exception, KError>));
}

TEST(KErrorTest, TheSummaryTellsCodePlaceAndInformation) {
    KError error = SampleError();
    error.SetInfo(KVariant("copy,only"));
    const std::string summary = error.GetSummary().c_str();
    EXPECT_THAT(summary, HasSubstr("7000"));
    EXPECT_THAT(summary, HasSubstr("ins/KFileRule"));
    EXPECT_THAT(summary, HasSubstr("175"));
    EXPECT_THAT(summary, HasSubstr("ParseRule"));
    EXPECT_THAT(summary, HasSubstr("copy,only"));
}

TEST(KErrorTest, TheSummaryTellsCodeAndPlaceWithoutInformation) {
    const std::string summary = SampleError().GetSummary().c_str();
    EXPECT_THAT(summary, HasSubstr("7000"));
    EXPECT_THAT(summary, HasSubstr("ins/KFileRule"));
    EXPECT_THAT(summary, HasSubstr("175"));
    EXPECT_THAT(summary, HasSubstr("ParseRule"));
}

TEST(KErrorTest, AStopAndTheLackOfRightsAreToldInWords) {
    const auto summaryOf = [](unsigned code) -> std::string {
        constexpr KSUP::KErrorSource source{"a source"};
        try {
            source.Raise(KSUP::TraceLevel::rule, code);
        } catch (const KError& error) {
            EXPECT_FALSE(error.HasInfo());
            return error.GetSummary().c_str();
        }
    };
    EXPECT_THAT(summaryOf(66), HasSubstr("): the run was stopped on request"));
    EXPECT_THAT(summaryOf(99), HasSubstr("): only root can install and remove"));
    EXPECT_THAT(summaryOf(182), HasSubstr("): systemd or the service refused"));
    EXPECT_THAT(summaryOf(64), testing::EndsWith(")"));
}

TEST(KErrorTest, TheSummaryHasNoControlCharacters) {
    std::string info = "before";
    for (char control = 1; control < ' '; ++control) {
        info += control;
    }
    info += "\x7f"
            "after";
    KError error(48, 7000, 0, 1, "file\n", "function\r\n", nullptr);
    error.SetInfo(KVariant(KString(info)));
    const std::string summary = error.GetSummary().c_str();
    EXPECT_THAT(summary, HasSubstr("before" + std::string(32, ' ') + "after"));
    EXPECT_THAT(summary, testing::Each(testing::Truly([](char byte) {
                    return static_cast<unsigned char>(byte) >= ' ' && byte != '\x7f';
                })));
}

TEST(KErrorTest, TheSummaryKeepsEverythingElseAsItStands) {
    KError error = SampleError();
    const std::string info = "%s%n \xc3\xa9 \xff $macro$ " + std::string(100000, 'x') + "end";
    error.SetInfo(KVariant(KString(info)));
    EXPECT_THAT(error.GetSummary().c_str(), HasSubstr(info));
}

TEST(KErrorTest, TheLargestNumbersStandInTheSummary) {
    const KError error(4294967295U, 4294967295U, 4294967295U, 4294967294U, "f", "g", nullptr);
    EXPECT_EQ(error.GetLevel(), 4294967295U);
    EXPECT_THAT(error.GetSummary().c_str(), HasSubstr("4294967295"));
    EXPECT_THAT(error.GetSummary().c_str(), HasSubstr("4294967294"));
}

} // namespace
} // namespace KTEST
