// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/KFileEnum.h>

#include <algorithm>
#include <cerrno>

#include <sys/resource.h>

namespace KTEST {
namespace {

using KSUP::KFileEnum;
using testing::ElementsAre;
using testing::IsEmpty;

class KFileEnumTest : public testing::Test {
  protected:
    /// The names of what is left to list, their directory checked and taken off.
    std::vector<std::string> Names(KFileEnum& files, const std::string& relative = "d") {
        const std::string directory = tree.Path(relative) + "/";
        std::vector<std::string> names;
        while (files.Enum()) {
            const std::string path = files.GetPath().c_str();
            EXPECT_EQ(path.substr(0, directory.size()), directory);
            names.push_back(path.substr(std::min(path.size(), directory.size())));
        }
        return names;
    }
    std::vector<std::string> Matches(const std::string& pattern) {
        KFileEnum files(tree.Path("d"), pattern, false, false);
        return Names(files);
    }
    void GivenFiles(const std::vector<std::string>& names) {
        tree.Directory("d");
        for (const std::string& name : names) {
            tree.Write("d/" + name, "");
        }
    }

    TemporaryTree tree;
};

TEST_F(KFileEnumTest, YieldsEverythingThatIsNoDirectorySortedByByte) {
    GivenFiles({"b", "a", "B", ".hidden", "\xc3\xa9", "a.so"});
    tree.Directory("d/subdirectory");
    tree.Link("d/dangling", "nowhere");
    tree.Fifo("d/queue");
    EXPECT_THAT(
        Matches("*"), ElementsAre(".hidden", "B", "a", "a.so", "b", "dangling", "queue", "\xc3\xa9")
    );
}

TEST_F(KFileEnumTest, YieldsALinkToADirectoryBecauseItIsNone) {
    tree.Directory("real");
    tree.Link("d/link", "../real");
    EXPECT_THAT(Matches("*"), ElementsAre("link"));
}

TEST_F(KFileEnumTest, NeverYieldsItselfOrItsParent) {
    GivenFiles({});
    EXPECT_THAT(Matches("*"), IsEmpty());
    EXPECT_THAT(Matches("."), IsEmpty());
    EXPECT_THAT(Matches(".."), IsEmpty());
}

struct PatternRow {
    const char* name;
    const char* pattern;
    std::vector<std::string> files;
    std::vector<std::string> matches;

    friend void PrintTo(const PatternRow& row, std::ostream* out) { *out << row.name; }
};

class KFileEnumPatternTest : public KFileEnumTest,
                             public testing::WithParamInterface<PatternRow> {};

TEST_P(KFileEnumPatternTest, YieldsTheMatches) {
    GivenFiles(GetParam().files);
    EXPECT_EQ(Matches(GetParam().pattern), GetParam().matches);
}

TEST_P(KFileEnumPatternTest, NamesAloneMatchAsThoseInADirectory) {
    std::vector<std::string> matches = GetParam().files;
    std::erase_if(matches, [](const std::string& file) {
        return !KSUP::KFileEnum::Matches(file.c_str(), GetParam().pattern);
    });
    std::sort(matches.begin(), matches.end());
    EXPECT_EQ(matches, GetParam().matches);
}

INSTANTIATE_TEST_SUITE_P(
    Patterns,
    KFileEnumPatternTest,
    testing::ValuesIn(std::vector<PatternRow>{
        {"All", "*", {".x", "x"}, {".x", "x"}},
        {"Suffix", "*.so", {".so", "a.so", "a.so.1", "aso"}, {".so", "a.so"}},
        {"Prefix", "lib*", {"li", "lib", "libx", "xlib"}, {"lib", "libx"}},
        {"Middle", "a*z", {"a", "az", "abz", "abzc", "z"}, {"abz", "az"}},
        {"SeveralStars", "a*b*c", {"abc", "aXbYc", "acb", "abcbc"}, {"aXbYc", "abc", "abcbc"}},
        {"StarsInARow", "a**b", {"ab", "axb", "b"}, {"ab", "axb"}},
        {"OneCharacter", "a?c", {"abc", "ac", "abbc"}, {"abc"}},
        {"OnlyOneCharacter",
         "?",
         {"a",
          "ab",
          "."
          "b"},
         {"a"}},
        {"OneCharacterOfManyBytes",
         "a?c",
         {"a\xc3\xa9"
          "c",
          "a\xf0\x9f\x98\x80"
          "c"},
         {"a\xc3\xa9"
          "c",
          "a\xf0\x9f\x98\x80"
          "c"}},
        {"OneInvalidByte",
         "a?c",
         {"a\xff"
          "c",
          "a\xff\xfe"
          "c"},
         {"a\xff"
          "c"}},
        {"TwoCharacters", "??", {"a", "ab", "\xc3\xa9\xc3\xa9", "abc"}, {"ab", "\xc3\xa9\xc3\xa9"}},
        {"QuestionMarkAtTheEnd", "a?", {"a", "ab"}, {"ab"}},
        {"QuestionMarkMatchesADot", "?x", {".x", "ax"}, {".x", "ax"}},
        {"StarAndQuestionMark", "*?", {"a", "ab"}, {"a", "ab"}},
        {"Exact", "name", {"name", "Name", "names"}, {"name"}},
        {"CaseCounts", "*.SO", {"a.so", "b.SO"}, {"b.SO"}},
        {"BracketsAreLetters", "[ab]*", {"a", "[ab]", "[ab]c"}, {"[ab]", "[ab]c"}},
        {"BracesAreLetters", "{a,b}", {"a", "{a,b}"}, {"{a,b}"}},
        {"ABackslashIsALetter", "\\*", {"*", "\\", "\\x"}, {"\\", "\\x"}},
        {"TheStarMatchesAStar", "a*", {"a*", "ab"}, {"a*", "ab"}},
        {"NewlinesMatch", "a*b", {"a\nb"}, {"a\nb"}},
        {"NothingMatches", "x*", {"a", "b"}, {}},
    }),
    NameOfRow()
);

TEST_F(KFileEnumTest, ADifficultPatternTakesNoTime) {
    GivenFiles({std::string(250, 'a')});
    std::string pattern;
    for (int star = 0; star < 60; ++star) {
        pattern += "*a";
    }
    const HangGuard guard; // trying every way would take longer than the universe
    EXPECT_THAT(Matches(pattern + "*b"), IsEmpty());
    EXPECT_THAT(Matches(pattern), testing::SizeIs(1));
}

TEST_F(KFileEnumTest, TakesThePatternFromTheEndOfAPath) {
    GivenFiles({"a.so", "b.so", "c.txt"});
    KFileEnum files(tree.Path("d/*.so"), false, false);
    EXPECT_THAT(Names(files), ElementsAre("a.so", "b.so"));
    KFileEnum one(tree.Path("d/c.txt"), false, false);
    EXPECT_THAT(Names(one), ElementsAre("c.txt"));
}

TEST_F(KFileEnumTest, OnlyTheLastComponentIsAPattern) {
    tree.Write("d*/a", "");
    tree.Write("dx/b", "");
    KFileEnum files(tree.Path("d*/*"), false, false);
    EXPECT_THAT(Names(files, "d*"), ElementsAre("a"));
}

TEST_F(KFileEnumTest, ASeparatorAtTheEndOfTheDirectoryIsNotDoubled) {
    GivenFiles({"a"});
    KFileEnum files(tree.Path("d/"), "*", false, false);
    EXPECT_THAT(Names(files), ElementsAre("a"));
}

TEST_F(KFileEnumTest, YieldsStrangeNamesWhole) {
    const std::string longest(255, 'n');
    GivenFiles({"line\nline", "\xff\xfe", " ", "$x$", longest});
    EXPECT_THAT(Matches("*"), ElementsAre(" ", "$x$", "line\nline", longest, "\xff\xfe"));
}

TEST_F(KFileEnumTest, YieldsNothingOfADirectoryThatIsMissing) {
    EXPECT_THAT(Matches("*"), IsEmpty());
    KFileEnum none("", "*", false, false);
    EXPECT_FALSE(none.Enum());
}

TEST_F(KFileEnumTest, YieldsNothingOfAFile) {
    tree.Write("d", "x");
    EXPECT_THAT(Matches("*"), IsEmpty());
}

TEST_F(KFileEnumTest, YieldsNothingOfADirectoryThatCannotBeRead) {
    GivenFiles({"a"});
    tree.SetMode("d", 0);
    std::vector<std::string> names{"not run"};
    AsNobody([&] { names = Matches("*"); });
    EXPECT_THAT(names, IsEmpty());
}

TEST_F(KFileEnumTest, HasNoPathBeforeTheFirstAndBehindTheLast) {
    GivenFiles({"a"});
    KFileEnum files(tree.Path("d"), "*", false, false);
    EXPECT_EQ(files.GetPath(), "");
    EXPECT_TRUE(files.Enum());
    EXPECT_EQ(files.GetPath(), tree.Path("d/a"));
    EXPECT_FALSE(files.Enum());
    EXPECT_EQ(files.GetPath(), "");
    EXPECT_FALSE(files.Enum());
}

TEST_F(KFileEnumTest, HasNothingUntilItIsStarted) {
    KFileEnum files;
    EXPECT_FALSE(files.Enum());
    EXPECT_EQ(files.GetPath(), "");
}

TEST_F(KFileEnumTest, BeginsAnewWithStart) {
    GivenFiles({"a", "b"});
    tree.Write("e/c", "");
    KFileEnum files;
    files.Start(tree.Path("d"), "*", false, false);
    EXPECT_TRUE(files.Enum());
    files.Start(tree.Path("e"), "*", false, false);
    EXPECT_THAT(Names(files, "e"), ElementsAre("c"));
    files.Start(tree.Path("d"), "*", false, false);
    EXPECT_THAT(Names(files), ElementsAre("a", "b"));
}

TEST_F(KFileEnumTest, YieldsWhatWasThereWhenItBegan) {
    GivenFiles({"a", "b"});
    KFileEnum files(tree.Path("d"), "*", false, false);
    tree.Remove("d/b");
    tree.Write("d/c", "");
    EXPECT_THAT(Names(files), ElementsAre("a", "b"));
}

TEST_F(KFileEnumTest, IsNotDisturbedByDeletingWhatItYields) {
    std::vector<std::string> names;
    for (int file = 1000; file < 1500; ++file) {
        names.push_back(std::to_string(file));
    }
    GivenFiles(names);
    KFileEnum files(tree.Path("d"), "*", false, false);
    std::size_t deleted = 0;
    while (files.Enum()) {
        tree.Remove("d/" + names[deleted]);
        ++deleted;
    }
    EXPECT_EQ(deleted, 500U);
    EXPECT_THAT(tree.List("d"), IsEmpty());
}

TEST_F(KFileEnumTest, RefusesTheReservedFlags) {
    GivenFiles({"a"});
    KFileEnum files;
    EXPECT_EQ(CodeOf([&] { files.Start(tree.Path("d"), "*", true, false); }), 36U);
    EXPECT_EQ(CodeOf([&] { files.Start(tree.Path("d"), "*", false, true); }), 36U);
    EXPECT_EQ(CodeOf([&] { KFileEnum(tree.Path("d/*"), true, false); }), 36U);
    EXPECT_EQ(CodeOf([&] { KFileEnum(tree.Path("d"), "*", false, true); }), 36U);
}

TEST_F(KFileEnumTest, AListingThatBreaksOffIsAnError) {
    GivenFiles({"a"});
    tree.Link("loop", "loop");
    const auto codeOf = [&](const char* name) {
        return CodeOf([&] { KFileEnum files(tree.Path(name), "*", false, false); });
    };
    // First, for a sanitizer needs descriptors when it meets a type for the first time.
    EXPECT_EQ(codeOf("loop"), static_cast<unsigned>(ELOOP));
    const int status = InChild([&] {
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_NOFILE, &none);
        return codeOf("d") == EMFILE ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
}

TEST_F(KFileEnumTest, LeavesNoDescriptor) {
    GivenFiles({"a"});
    const std::vector<int> before = OpenDescriptors();
    KFileEnum files(tree.Path("d"), "*", false, false);
    EXPECT_TRUE(files.Enum());
    EXPECT_EQ(OpenDescriptors(), before);
}

} // namespace
} // namespace KTEST
