// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "KProfileFixture.h"

#include <functional>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace KTEST {
namespace {

using KSUP::KProfile;
using testing::ElementsAre;

/// Walks while another object, which knows nothing of this one, changes the file.
class KProfileWalksTest : public KProfileTest {
  protected:
    /// A step of a walk: the value, or "" at its end.
    static std::string Step(const KProfile& profile, unsigned* cursor = nullptr) {
        return profile.EnumKey(cursor, false) ? profile.GetKeyValue().c_str() : "";
    }
    static std::vector<std::string> Rest(const KProfile& profile, unsigned* cursor = nullptr) {
        std::vector<std::string> values;
        while (profile.EnumKey(cursor, false)) {
            values.emplace_back(profile.GetKeyValue().c_str());
        }
        return values;
    }
    void OtherPuts(const char* section, const char* key, const char* value) {
        KProfile(Path()).PutString(section, key, value);
    }
    void OtherWrites(const std::string& bytes) { tree.Write("p.ini", bytes); }
    /// Deletes the key it stands on, which is when the file is read again.
    static void DeleteHere(KProfile& profile, const char* section) {
        const KSUP::KString name = profile.GetKeyName();
        profile.DeleteKey(section, name);
    }
};

TEST_F(KProfileWalksTest, KeysPutIntoASectionBeforeItMoveNothing) {
    KProfile profile = Given("[Settings]\nlevel=1\n[Keep]\nk=keep\n[Files]\na=a\nb=b\n");
    profile.BeginKeyEnum("Files", nullptr);
    ASSERT_EQ(Step(profile), "a");
    for (const char* key : {"x", "y", "z"}) {
        OtherPuts("Settings", key, "1");
    }
    DeleteHere(profile, "Files");
    EXPECT_THAT(Rest(profile), ElementsAre("b"));
    EXPECT_EQ(Bytes(), "[Settings]\nlevel=1\nx=1\ny=1\nz=1\n[Keep]\nk=keep\n[Files]\nb=b\n");
}

struct OthersRow {
    const char* name;
    const char* meanwhile;         // what the other one writes while the walk stands on a
    std::vector<std::string> rest; // what the walk meets then
    const char* after;

    friend void PrintTo(const OthersRow& row, std::ostream* out) { *out << row.name; }
};

class KProfileOthersTest : public KProfileWalksTest,
                           public testing::WithParamInterface<OthersRow> {};

TEST_P(KProfileOthersTest, EveryKeyOfTheSectionIsMetOnce) {
    KProfile profile = Given("[t]\nt=t\n[s]\na=a\nb=b\nc=c\n");
    profile.BeginKeyEnum("s", nullptr);
    ASSERT_EQ(Step(profile), "a");
    OtherWrites(GetParam().meanwhile);
    DeleteHere(profile, "s");
    EXPECT_EQ(Rest(profile), GetParam().rest);
    EXPECT_EQ(Bytes(), GetParam().after);
}

TEST_P(KProfileOthersTest, AlsoWithTheCallersCursor) {
    KProfile profile = Given("[t]\nt=t\n[s]\na=a\nb=b\nc=c\n");
    unsigned cursor = 0;
    profile.BeginKeyEnum("s", &cursor);
    ASSERT_EQ(Step(profile, &cursor), "a");
    OtherWrites(GetParam().meanwhile);
    DeleteHere(profile, "s");
    EXPECT_EQ(Rest(profile, &cursor), GetParam().rest);
    EXPECT_EQ(Bytes(), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(
    Changes,
    KProfileOthersTest,
    testing::ValuesIn(std::vector<OthersRow>{
        {"Nothing", "[t]\nt=t\n[s]\na=a\nb=b\nc=c\n", {"b", "c"}, "[t]\nt=t\n[s]\nb=b\nc=c\n"},
        {"AKeyAtTheEnd", "[s]\na=a\nb=b\nc=c\nd=d\n", {"b", "c", "d"}, "[s]\nb=b\nc=c\nd=d\n"},
        {"AKeyAtTheFront", "[s]\nn=n\na=a\nb=b\nc=c\n", {"b", "c", "n"}, "[s]\nn=n\nb=b\nc=c\n"},
        {"AKeyBetween", "[s]\na=a\nb=b\nn=n\nc=c\n", {"b", "c", "n"}, "[s]\nb=b\nn=n\nc=c\n"},
        {"LessTheNextKey", "[s]\na=a\nc=c\n", {"c"}, "[s]\nc=c\n"},
        {"LessTheLastKey", "[s]\na=a\nb=b\n", {"b"}, "[s]\nb=b\n"},
        {"LessItsOwnKey", "[s]\nb=b\nc=c\n", {"b", "c"}, "[s]\nb=b\nc=c\n"},
        {"LessTheWholeSection", "[t]\nt=t\n", {}, "[t]\nt=t\n"},
        {"Backwards", "[s]\nc=c\nb=b\na=a\n", {"b", "c"}, "[s]\nc=c\nb=b\n"},
        {"SectionsSwapped",
         "[s]\na=a\nb=b\nc=c\n[t]\nt=t\n",
         {"b", "c"},
         "[s]\nb=b\nc=c\n[t]\nt=t\n"},
        {"InPieces",
         "[s]\na=a\n[t]\nb=t\n[s]\nb=b\n;\nc=c\n",
         {"b", "c"},
         "[s]\n[t]\nb=t\n[s]\nb=b\n;\nc=c\n"},
        {"AnotherValueAhead", "[s]\na=a\nb=new\nc=c\n", {"new", "c"}, "[s]\nb=new\nc=c\n"},
        {"AnotherValueOfItsOwn", "[s]\na=new\nb=b\nc=c\n", {"b", "c"}, "[s]\nb=b\nc=c\n"},
        {"BlanksAndComments",
         ";\n[s]\n\n a = a\n;\nb=b\r\nc =c",
         {"b", "c"},
         ";\n[s]\n\n;\nb=b\r\nc =c"},
        {"AllKeysInAnotherSection", "[t]\na=a\nb=b\nc=c\n", {}, "[t]\na=a\nb=b\nc=c\n"},
        {"EverythingElse", "[s]\nx=x\ny=y\n", {"x", "y"}, "[s]\nx=x\ny=y\n"},
    }),
    NameOfRow()
);

TEST_F(KProfileWalksTest, EveryChangeOfALongWalkIsSurvived) {
    KProfile profile = Given("[s]\na=a\nb=b\nc=c\nd=d\n");
    profile.BeginKeyEnum("s", nullptr);
    ASSERT_EQ(Step(profile), "a");
    OtherWrites("[s]\nd=d\nc=c\nb=b\na=a\n");
    DeleteHere(profile, "s");
    ASSERT_EQ(Step(profile), "b");
    OtherWrites("[s]\ne=e\nb=b\nd=d\nc=c\n");
    DeleteHere(profile, "s");
    profile.PutString("s", "f", "f");
    ASSERT_EQ(Step(profile), "c");
    OtherPuts("s", "g", "g");
    DeleteHere(profile, "s");
    EXPECT_THAT(Rest(profile), ElementsAre("d", "e", "f", "g"));
    EXPECT_EQ(Bytes(), "[s]\ne=e\nd=d\nf=f\ng=g\n");
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_THAT(Rest(profile), ElementsAre("e", "d", "f", "g")) << "a new walk: as the file is";
}

TEST_F(KProfileWalksTest, KeysPutByItselfAfterAChangeAreMet) {
    KProfile profile = Given("[s]\na=a\nb=b\n");
    profile.BeginKeyEnum("s", nullptr);
    ASSERT_EQ(Step(profile), "a");
    OtherPuts("t", "x", "x");
    profile.PutString("s", "c", "c");
    profile.PutString("u", "d", "d");
    EXPECT_THAT(Rest(profile), ElementsAre("b", "c"));
    profile.BeginKeyEnum("u", nullptr);
    EXPECT_THAT(Rest(profile), ElementsAre("d"));
}

TEST_F(KProfileWalksTest, ALineThatAnotherDeletedIsNotReplacedByItsLikeInTheDeletion) {
    KProfile profile = Given("[F]\nfile=a.txt\nfile=b.so\nfile=c.txt\n");
    profile.BeginKeyEnum("F", nullptr);
    ASSERT_EQ(Step(profile), "a.txt");
    ASSERT_EQ(Step(profile), "b.so");
    OtherWrites("[F]\nfile=a.txt\nfile=c.txt\n");
    DeleteHere(profile, "F");
    EXPECT_EQ(Bytes(), "[F]\nfile=a.txt\nfile=c.txt\n");
    EXPECT_THAT(Rest(profile), ElementsAre("c.txt"));
}

TEST_F(KProfileWalksTest, ALineDeletedThroughACopyIsNotReplacedByItsLikeEither) {
    KProfile profile = Given("[F]\nfile=a.txt\nfile=b.so\n");
    profile.BeginKeyEnum("F", nullptr);
    ASSERT_EQ(Step(profile), "a.txt");
    ASSERT_EQ(Step(profile), "b.so");
    KProfile copy(profile);
    copy.BeginKeyEnum("F", nullptr);
    ASSERT_EQ(Step(copy), "a.txt");
    ASSERT_EQ(Step(copy), "b.so");
    DeleteHere(copy, "F");
    DeleteHere(profile, "F");
    EXPECT_EQ(Bytes(), "[F]\nfile=a.txt\n");
}

TEST_F(KProfileWalksTest, ADeletionTakesTheLineOfTheCallersCursor) {
    KProfile profile = Given("[F]\nfile=/a.so\nfile=/b.txt\nfile=/c.so\n");
    unsigned cursor = 0;
    profile.BeginKeyEnum("F", &cursor);
    while (profile.EnumKey(&cursor, false)) {
        if (std::string(profile.GetKeyValue().c_str()).ends_with(".so")) {
            DeleteHere(profile, "F");
        }
    }
    EXPECT_EQ(Bytes(), "[F]\nfile=/b.txt\n");
}

TEST_F(KProfileWalksTest, ADeletionTakesTheLineOfTheWalkThatSteppedLast) {
    KProfile profile = Given("[F]\nfile=1\nfile=2\nfile=3\n");
    unsigned cursor = 0;
    profile.BeginKeyEnum("F", &cursor);
    profile.BeginKeyEnum("F", nullptr);
    ASSERT_EQ(Step(profile, &cursor), "1");
    ASSERT_EQ(Step(profile), "1");
    ASSERT_EQ(Step(profile), "2");
    DeleteHere(profile, "F");
    EXPECT_THAT(Rest(profile, &cursor), ElementsAre("3"));
    EXPECT_EQ(Bytes(), "[F]\nfile=1\nfile=3\n");
}

TEST_F(KProfileWalksTest, TwoCursorsBegunAtOnceKeepToTheirSections) {
    const KProfile profile = Given("[s]\na=1\nb=2\n[t]\nc=3\n");
    unsigned ofS = 0;
    unsigned ofT = 0;
    unsigned ofNone = 0;
    profile.BeginKeyEnum("s", &ofS);
    profile.BeginKeyEnum("none", &ofNone);
    profile.BeginKeyEnum("t", &ofT);
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_THAT(Rest(profile, &ofT), ElementsAre("3"));
    EXPECT_THAT(Rest(profile, &ofNone), testing::IsEmpty());
    EXPECT_THAT(Rest(profile, &ofS), ElementsAre("1", "2"));
    EXPECT_THAT(Rest(profile), ElementsAre("1", "2"));
}

TEST_F(KProfileWalksTest, ACursorIsTheNumberOfItsLine) {
    const KProfile profile = Given("; first\n[s]\na=1\n\nb=2\n");
    unsigned cursor = 0;
    profile.BeginKeyEnum("s", &cursor);
    ASSERT_EQ(Step(profile, &cursor), "1");
    EXPECT_EQ(cursor, 3U);
    ASSERT_EQ(Step(profile, &cursor), "2");
    EXPECT_EQ(cursor, 5U);
}

TEST_F(KProfileWalksTest, BegunBeforeTheSectionIsThereItMeetsItsKeys) {
    KProfile profile = Given("[s]\na=a\n");
    profile.BeginKeyEnum("t", nullptr);
    OtherPuts("t", "b", "b");
    profile.PutString("t", "c", "c");
    EXPECT_THAT(Rest(profile), ElementsAre("b", "c"));
}

TEST_F(KProfileWalksTest, AnotherFileIsWalkedFromItsBeginning) {
    KProfile profile = Given("[s]\na=1\nb=2\nc=3\n");
    tree.Write("q.ini", "[s]\nx=7\ny=8\n");
    profile.BeginKeyEnum("s", nullptr);
    ASSERT_EQ(Step(profile), "1");
    ASSERT_EQ(Step(profile), "2");
    profile.Open(tree.Path("q.ini"));
    EXPECT_THAT(Rest(profile), ElementsAre("7", "8"));
}

TEST_F(KProfileWalksTest, AFileThatWasGoneAndCameBackIsWalkedOn) {
    KProfile profile = Given("[s]\na=a\nb=b\nc=c\n");
    profile.BeginKeyEnum("s", nullptr);
    ASSERT_EQ(Step(profile), "a");
    tree.Remove("p.ini");
    DeleteHere(profile, "s");
    ASSERT_EQ(Step(profile), "b") << "what was read is still walked";
    OtherWrites("[s]\nb=b\nc=c\nd=d\n");
    DeleteHere(profile, "s");
    EXPECT_THAT(Rest(profile), ElementsAre("c", "d"));
    EXPECT_EQ(Bytes(), "[s]\nc=c\nd=d\n");
}

/// With a process of its own that changes the file without a pause.
TEST_F(KProfileWalksTest, AWalkBesideABusyProcessMeetsItsOwnKeysAlone) {
    std::string before = "[Settings]\nlevel=1\n[Keep]\n";
    std::vector<std::string> values;
    for (int key = 0; key < 60; ++key) {
        before += "k" + std::to_string(key) + "=keep\n";
    }
    before += "[Files]\n";
    for (int key = 0; key < 60; ++key) {
        values.push_back("file" + std::to_string(key));
        before += "f" + std::to_string(key) + "=" + values.back() + "\n";
    }
    KProfile profile = Given(before);
    const pid_t busy = ::fork();
    ASSERT_GE(busy, 0);
    if (busy == 0) {
        for (int put = 0;; ++put) {
            OtherPuts("Settings", ("s" + std::to_string(put)).c_str(), "1");
        }
    }
    std::vector<std::string> met;
    profile.BeginKeyEnum("Files", nullptr);
    while (profile.EnumKey(nullptr, false)) {
        met.emplace_back(profile.GetKeyValue().c_str());
        DeleteHere(profile, "Files");
    }
    ::kill(busy, SIGKILL);
    ::waitpid(busy, nullptr, 0);
    EXPECT_EQ(met, values);
    profile.Open(Path());
    profile.BeginKeyEnum("Keep", nullptr);
    EXPECT_THAT(Rest(profile), testing::SizeIs(60));
    profile.BeginKeyEnum("Files", nullptr);
    EXPECT_THAT(Rest(profile), testing::IsEmpty());
}

} // namespace
} // namespace KTEST
