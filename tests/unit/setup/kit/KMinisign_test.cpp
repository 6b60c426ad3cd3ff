// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/KBlake2b.h>
#include <setup/kit/KMinisign.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using KSETUP::KPublicKey;
using KSETUP::KSignature;
using ::testing::HasSubstr;

// Made by minisign 0.11 of a file with "hi\n".
constexpr char makersKey[] = "untrusted comment: minisign public key 6D66D82A5D1E8A3C\n"
                             "RWQ8ih5dKthmbSKkpUJPGC5LNl3q5GawvUIQuRozLRG9YBCLwA0fAUwB\n";
constexpr char signedHi[] =
    "untrusted comment: sig of f\n"
    "RUQ8ih5dKthmbeKAzo6xf4swJvRWEWAEkC4TOgO68YqEAklrOYYdEBcOtJJkQQjqHyiaIRvzl/"
    "IGqC/CEWTOGoSVI4F75Yq/4wE=\n"
    "trusted comment: a:b\tc:d\n"
    "RW5dbpi3Xf2wlyehFG5peyapkb7aLZUbrd3e90ZtFxCSJeoVBgtvNfoH858ScdwiubTO+jPGBdsrauGDBbS/BA==\n";

KPublicKey MakersKey() {
    return KPublicKey::FromText(makersKey, "maker.pub");
}

KSignature MinisignOf(const std::string& text) {
    return KSignature::FromText(text, "f.minisig");
}

std::string Exchanged(std::string text, const std::string& from, const std::string& to) {
    EXPECT_THAT(text, HasSubstr(from));
    return text.replace(text.find(from), from.size(), to);
}

TEST(KMinisignTest, AKeyIsReadAndWrittenAsMinisignDoes) {
    EXPECT_EQ(MakersKey().GetId(), "6D66D82A5D1E8A3C");
    EXPECT_EQ(MakersKey().ToText(), makersKey);
}

TEST(KMinisignTest, ASignatureOfMinisignFits) {
    const KSignature made = MinisignOf(signedHi);
    EXPECT_EQ(made.GetKeyId(), "6D66D82A5D1E8A3C");
    EXPECT_EQ(made.GetTrustedComment(), "a:b\tc:d");
    EXPECT_TRUE(made.Fits(MakersKey(), KSETUP::Blake2b("hi\n")));
}

TEST(KMinisignTest, ASignatureOfAnotherFileDoesNotFit) {
    EXPECT_FALSE(MinisignOf(signedHi).Fits(MakersKey(), KSETUP::Blake2b("ho\n")));
}

TEST(KMinisignTest, ASignatureWithAnotherTrustedCommentDoesNotFit) {
    const KSignature made = MinisignOf(Exchanged(signedHi, "a:b\tc:d", "a:b\tc:e"));
    EXPECT_EQ(made.GetTrustedComment(), "a:b\tc:e");
    EXPECT_FALSE(made.Fits(MakersKey(), KSETUP::Blake2b("hi\n")));
}

TEST(KMinisignTest, ASignatureDoesNotFitAnotherKeyOfTheSameId) {
    const KPublicKey other =
        KPublicKey::FromText(Exchanged(makersKey, "AUwB\n", "AUwA\n"), "other.pub");
    EXPECT_EQ(other.GetId(), MakersKey().GetId());
    EXPECT_FALSE(MinisignOf(signedHi).Fits(other, KSETUP::Blake2b("hi\n")));
}

TEST(KMinisignTest, ASignatureOfTheOldWayIsRefusedWithTheWayOut) {
    try {
        MinisignOf(Exchanged(signedHi, "RUQ8", "RWQ8"));
        FAIL() << "it was taken";
    } catch (const KSETUP::KSetupFailure& failure) {
        EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::malformedScript);
        EXPECT_THAT(failure.what(), HasSubstr("f.minisig: signed in the way of old"));
    }
}

struct KBadMinisignText {
    const char* name;
    const char* from;
    const char* to;
};

class KMinisignBadKeyTest : public ::testing::TestWithParam<KBadMinisignText> {};

TEST_P(KMinisignBadKeyTest, IsRefused) {
    const std::string text = Exchanged(makersKey, GetParam().from, GetParam().to);
    EXPECT_THROW(KPublicKey::FromText(text, "maker.pub"), KSETUP::KSetupFailure) << text;
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    KMinisignBadKeyTest,
    ::testing::Values(
        KBadMinisignText{"NoComment", "untrusted comment: ", "comment: "},
        KBadMinisignText{"OfAnotherAlgorithm", "RWQ8", "RUQ8"},
        KBadMinisignText{"TooShort", "AUwB\n", "\n"},
        KBadMinisignText{"TooLong", "AUwB\n", "AUwBAUwB\n"},
        KBadMinisignText{"WithASpace", "AUwB\n", "AUw \n"},
        KBadMinisignText{"WithPadding", "AUwB\n", "AUw=\n"},
        KBadMinisignText{"WithAnotherLineEnd", "AUwB\n", "AUwB\r\n"},
        KBadMinisignText{"WithoutALineEnd", "AUwB\n", "AUwB"},
        KBadMinisignText{"WithOneLineMore", "AUwB\n", "AUwB\nmore\n"}
    ),
    KTEST::NameOfRow{}
);

class KMinisignBadSignatureTest : public ::testing::TestWithParam<KBadMinisignText> {};

TEST_P(KMinisignBadSignatureTest, IsRefused) {
    const std::string text = Exchanged(signedHi, GetParam().from, GetParam().to);
    EXPECT_THROW(MinisignOf(text), KSETUP::KSetupFailure) << text;
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    KMinisignBadSignatureTest,
    ::testing::Values(
        KBadMinisignText{"NoUntrustedComment", "untrusted comment: ", ""},
        KBadMinisignText{"NoTrustedComment", "\ntrusted comment: ", "\ncomment: "},
        KBadMinisignText{"OfAnotherAlgorithm", "RUQ8", "RVQ8"},
        KBadMinisignText{"WithBitsThatMeanNothing", "/4wE=\n", "/4wF=\n"},
        KBadMinisignText{"WithoutPadding", "/4wE=\n", "/4wE\n"},
        KBadMinisignText{"WithALineBreakInTheComment", "a:b\t", "a:b\n"},
        KBadMinisignText{"WithACarriageReturn", "a:b\t", "a:b\r"},
        KBadMinisignText{"WithoutTheSecondSignature", "BbS/BA==\n", "\n"},
        KBadMinisignText{"WithOneLineMore", "BbS/BA==\n", "BbS/BA==\n\n"}
    ),
    KTEST::NameOfRow{}
);

} // namespace
