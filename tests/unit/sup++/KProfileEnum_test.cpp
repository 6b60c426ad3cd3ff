// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/KProfile.h>

#include <algorithm>
#include <functional>

namespace KTEST {
namespace {

using KSUP::KProfile;
using testing::ElementsAre;
using testing::IsEmpty;

class KProfileEnumTest : public testing::Test {
  protected:
    KProfile Given(const std::string& bytes) {
        tree.Write("p.ini", bytes);
        return KProfile(tree.Path("p.ini"));
    }
    std::string Bytes() const { return tree.Read("p.ini"); }
    static std::string Line(const KProfile& profile) {
        return std::string(profile.GetKeyName().c_str()) + "=" + profile.GetKeyValue().c_str();
    }
    /// The key lines that are left.
    static std::vector<std::string> Rest(const KProfile& profile, unsigned* cursor = nullptr) {
        std::vector<std::string> lines;
        while (profile.EnumKey(cursor, false)) {
            lines.push_back(Line(profile));
        }
        return lines;
    }
    static std::vector<std::string> Lines(const KProfile& profile, const std::string& section) {
        profile.BeginKeyEnum(section, nullptr);
        return Rest(profile);
    }

    TemporaryTree tree;
};

TEST_F(KProfileEnumTest, MeetsEveryLineInFileOrder) {
    const KProfile profile = Given("[install]\nz=1\na=2\nm=3\n[remove]\nx=9\n");
    EXPECT_THAT(Lines(profile, "install"), ElementsAre("z=1", "a=2", "m=3"));
    EXPECT_THAT(Lines(profile, "remove"), ElementsAre("x=9"));
}

TEST_F(KProfileEnumTest, MeetsDuplicatesAndLinesWithoutValue) {
    const KProfile profile = Given("[s]\nfile=a\nfile=b\nbare\nfile=a\n=v\n");
    EXPECT_THAT(Lines(profile, "s"), ElementsAre("file=a", "file=b", "bare=", "file=a", "=v"));
}

TEST_F(KProfileEnumTest, MeetsNoCommentsAndNoBlankLines) {
    const KProfile profile = Given("[s]\n;a=1\n\n  # b=2\n \t \nc=3\r\n\r\n");
    EXPECT_THAT(Lines(profile, "s"), ElementsAre("c=3"));
}

TEST_F(KProfileEnumTest, MeetsEveryPieceOfASection) {
    const KProfile profile = Given("[s]\na=1\n[t]\nb=2\n[s]\nc=3\n[s]\n[u]\n[s]\nd=4\n");
    EXPECT_THAT(Lines(profile, "s"), ElementsAre("a=1", "c=3", "d=4"));
}

TEST_F(KProfileEnumTest, MeetsWhatStandsBeforeTheFirstHeader) {
    const KProfile profile = Given("\xef\xbb\xbf"
                                   "a=1\nb=2\n[s]\nc=3\n");
    EXPECT_THAT(Lines(profile, ""), ElementsAre("a=1", "b=2"));
}

TEST_F(KProfileEnumTest, MeetsNothingInASectionThatIsMissingOrEmpty) {
    const KProfile profile = Given("[install.x86_64]\na=1\n[empty]\n");
    EXPECT_THAT(Lines(profile, "install"), IsEmpty());
    EXPECT_THAT(Lines(profile, "install.x86"), IsEmpty());
    EXPECT_THAT(Lines(profile, "empty"), IsEmpty());
    EXPECT_THAT(Lines(profile, ""), IsEmpty());
}

TEST_F(KProfileEnumTest, StaysAtItsEnd) {
    const KProfile profile = Given("[s]\na=1\n");
    EXPECT_THAT(Lines(profile, "s"), testing::SizeIs(1));
    EXPECT_FALSE(profile.EnumKey(nullptr, false));
    EXPECT_FALSE(profile.EnumKey(nullptr, false));
}

TEST_F(KProfileEnumTest, BeginsAnewInAnySection) {
    const KProfile profile = Given("[s]\na=1\nb=2\n[t]\nc=3\n");
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    EXPECT_THAT(Lines(profile, "t"), ElementsAre("c=3"));
    EXPECT_THAT(Lines(profile, "s"), ElementsAre("a=1", "b=2"));
}

TEST_F(KProfileEnumTest, RefusesTheReservedFlag) {
    const KProfile profile = Given("[s]\na=1\n");
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_EQ(CodeOf([&] { profile.EnumKey(nullptr, true); }), 36U);
}

TEST_F(KProfileEnumTest, ACallersCursorHoldsThePosition) {
    const KProfile profile = Given("[s]\na=1\nb=2\nc=3\n");
    unsigned outer = 77;
    unsigned inner = 88;
    profile.BeginKeyEnum("s", &outer);
    EXPECT_TRUE(profile.EnumKey(&outer, false));
    profile.BeginKeyEnum("s", &inner);
    EXPECT_THAT(Rest(profile, &inner), ElementsAre("a=1", "b=2", "c=3"));
    EXPECT_THAT(Rest(profile, &outer), ElementsAre("b=2", "c=3"));
}

TEST_F(KProfileEnumTest, ACopyHasItsOwnPositionAndLine) {
    const KProfile profile = Given("[s]\na=1\nb=2\n[t]\nc=3\nd=4\n");
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    const KProfile copy(profile);
    EXPECT_THAT(Lines(copy, "t"), ElementsAre("c=3", "d=4"));
    EXPECT_EQ(Line(profile), "a=1");
    EXPECT_THAT(Rest(profile), ElementsAre("b=2"));
}

TEST_F(KProfileEnumTest, NestsToAnyDepthOnCopies) {
    const KProfile profile = Given("[0]\nsection=1\nx=0\n[1]\nsection=2\nx=1\n[2]\nx=2\n");
    std::vector<std::string> met;
    const std::function<void(const KProfile&, const std::string&)> load =
        [&](const KProfile& from, const std::string& section) {
            const KProfile own(from);
            own.BeginKeyEnum(section, nullptr);
            while (own.EnumKey(nullptr, false)) {
                const std::string value = own.GetKeyValue().c_str();
                if (own.GetKeyName() == "section") {
                    load(own, value);
                }
                met.push_back(value);
            }
        };
    load(profile, "0");
    EXPECT_THAT(met, ElementsAre("2", "2", "1", "1", "0"));
}

// Changes on the way

/// Walks a section and removes the keys whose value has `part`, as a profile rule does.
std::vector<std::string>
WalkAndDelete(KProfile& profile, const std::string& section, const std::string& part) {
    std::vector<std::string> met;
    profile.BeginKeyEnum(section, nullptr);
    while (profile.EnumKey(nullptr, false)) {
        const KSUP::KString name = profile.GetKeyName();
        const std::string value = profile.GetKeyValue().c_str();
        met.push_back(value);
        if (value.find(part) != std::string::npos) {
            profile.DeleteKey(section, name);
        }
    }
    return met;
}

struct WalkRow {
    const char* name;
    std::string before;
    const char* part;
    std::vector<std::string> met;
    std::string after;

    friend void PrintTo(const WalkRow& row, std::ostream* out) { *out << row.name; }
};

class KProfileWalkTest : public KProfileEnumTest, public testing::WithParamInterface<WalkRow> {};

TEST_P(KProfileWalkTest, MeetsEveryLineOnceAndRemovesTheRightOnes) {
    KProfile profile = Given(GetParam().before);
    EXPECT_EQ(WalkAndDelete(profile, "s", GetParam().part), GetParam().met);
    EXPECT_EQ(Bytes(), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(
    Deletions,
    KProfileWalkTest,
    testing::ValuesIn(std::vector<WalkRow>{
        {"None", "[s]\na=1\nb=2\n", "x", {"1", "2"}, "[s]\na=1\nb=2\n"},
        {"First", "[s]\na=1x\nb=2\nc=3\n", "x", {"1x", "2", "3"}, "[s]\nb=2\nc=3\n"},
        {"Middle", "[s]\na=1\nb=2x\nc=3\n", "x", {"1", "2x", "3"}, "[s]\na=1\nc=3\n"},
        {"Last", "[s]\na=1\nb=2\nc=3x\n", "x", {"1", "2", "3x"}, "[s]\na=1\nb=2\n"},
        {"All", "[s]\na=1\nb=2\nc=3\n", "", {"1", "2", "3"}, "[s]\n"},
        {"TwoInARow",
         "[s]\na=1\nb=2x\nc=3x\nd=4\n",
         "x",
         {"1", "2x", "3x", "4"},
         "[s]\na=1\nd=4\n"},
        {"SecondOfDuplicates", "[s]\nk=1\nk=2x\nk=3\n", "x", {"1", "2x", "3"}, "[s]\nk=1\nk=3\n"},
        {"FirstOfDuplicates", "[s]\nk=1x\nk=2\nk=3\n", "x", {"1x", "2", "3"}, "[s]\nk=2\nk=3\n"},
        {"AllDuplicates", "[s]\nk=1\nk=1\nk=1\n", "", {"1", "1", "1"}, "[s]\n"},
        {"EveryOtherDuplicate",
         "[s]\nk=x\nk=y\nk=x\nk=y\n",
         "x",
         {"x", "y", "x", "y"},
         "[s]\nk=y\nk=y\n"},
        {"AcrossPieces",
         "[s]\nk=1x\n[t]\nk=2x\n[s]\nk=3x\nk=4\n",
         "x",
         {"1x", "3x", "4"},
         "[s]\n[t]\nk=2x\n[s]\nk=4\n"},
        {"AroundComments", "[s]\n;1\na=x\n;2\n\nb=x\n;3\n", "x", {"x", "x"}, "[s]\n;1\n;2\n\n;3\n"},
        {"WithoutTheLastNewline", "[s]\na=1\nb=x", "x", {"1", "x"}, "[s]\na=1\n"},
    }),
    NameOfRow()
);

TEST_F(KProfileEnumTest, DeletingAnEarlierKeyDisturbsNothing) {
    KProfile profile = Given("[s]\na=1\nb=2\nc=3\nd=4\n");
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    profile.DeleteKey("s", "a");
    EXPECT_THAT(Rest(profile), ElementsAre("c=3", "d=4"));
    EXPECT_EQ(Bytes(), "[s]\nb=2\nc=3\nd=4\n");
}

TEST_F(KProfileEnumTest, DeletingALaterKeyTakesItOutOfTheWalk) {
    KProfile profile = Given("[s]\na=1\nb=2\nc=3\nd=4\n");
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    profile.DeleteKey("s", "c");
    EXPECT_THAT(Rest(profile), ElementsAre("b=2", "d=4"));
}

TEST_F(KProfileEnumTest, ASecondDeletionOfTheSameKeyTakesTheFirstOfTheRest) {
    KProfile profile = Given("[s]\nk=1\nk=2\nk=3\nk=4\n");
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    profile.DeleteKey("s", "k");
    EXPECT_EQ(Bytes(), "[s]\nk=1\nk=3\nk=4\n");
    profile.DeleteKey("s", "k");
    EXPECT_EQ(Bytes(), "[s]\nk=3\nk=4\n");
    EXPECT_THAT(Rest(profile), ElementsAre("k=3", "k=4"));
}

TEST_F(KProfileEnumTest, DeletingInAnotherSectionDisturbsNothing) {
    KProfile profile = Given("a=0\n[r]\na=1\n[s]\na=2\nb=3\nc=4\n");
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    profile.DeleteKey("r", "a");
    profile.DeleteKey("", "a");
    EXPECT_THAT(Rest(profile), ElementsAre("b=3", "c=4"));
    EXPECT_EQ(Bytes(), "[r]\n[s]\na=2\nb=3\nc=4\n");
}

TEST_F(KProfileEnumTest, DeletingTheSameNameInAnotherSectionSparesTheLineOfTheWalk) {
    KProfile profile = Given("[s]\nk=1\n[t]\nk=2\n");
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    profile.DeleteKey("t", "k");
    EXPECT_EQ(Bytes(), "[s]\nk=1\n[t]\n");
}

TEST_F(KProfileEnumTest, PuttingBeforeThePositionDisturbsNothing) {
    KProfile profile = Given("[r]\nx=1\n[s]\na=1\nb=2\nc=3\n");
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    profile.PutString("", "new", "1");
    profile.PutString("r", "new", "1");
    profile.PutString("s", "a", "changed");
    EXPECT_THAT(Rest(profile), ElementsAre("b=2", "c=3"));
}

TEST_F(KProfileEnumTest, AChangeThroughACopyDisturbsNothing) {
    KProfile profile = Given("[s]\na=1\nb=2\nc=3\nd=4\n");
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    KProfile copy(profile);
    copy.DeleteKey("s", "a");
    copy.PutString("", "new", "1");
    EXPECT_THAT(Rest(profile), ElementsAre("c=3", "d=4"));
}

TEST_F(KProfileEnumTest, ALineDeletedThroughACopyIsNotDeletedAgain) {
    KProfile profile = Given("[s]\nk=1\nk=2\nk=3\n");
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_TRUE(profile.EnumKey(nullptr, false));
    KProfile copy(profile);
    copy.DeleteKey("s", "k");
    EXPECT_EQ(Bytes(), "[s]\nk=2\nk=3\n");
    EXPECT_THAT(Rest(profile), ElementsAre("k=2", "k=3"));
}

TEST_F(KProfileEnumTest, WalksManyLinesAndDeletesHalfOfThem) {
    std::string before = "[s]\n";
    std::string after = "[s]\n";
    for (int line = 0; line < 400; ++line) {
        const std::string text = "file=" + std::to_string(line) + (line % 2 == 0 ? "x\n" : "\n");
        before += text;
        after += line % 2 == 0 ? "" : text;
    }
    KProfile profile = Given(before);
    EXPECT_THAT(WalkAndDelete(profile, "s", "x"), testing::SizeIs(400));
    EXPECT_EQ(Bytes(), after);
}

} // namespace
} // namespace KTEST
