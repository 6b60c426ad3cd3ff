// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"
#include "../../../support/TemporaryTree.h"

#include <setup/kit/DeclaredValues.h>
#include <setup/kit/ValuePattern.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ostream>
#include <string>
#include <vector>

namespace {

using KSETUP::KDeclaredValue;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class DeclaredValuesTest : public ::testing::Test {
  protected:
    KSETUP::KScript Product(const std::string& lines) {
        tree.Write("product.ini", "[values]\n" + lines);
        return KSETUP::KScript(tree.Path("product.ini"));
    }
    KSETUP::KScript Script(const std::string& lines) {
        tree.Write("install.ini", lines);
        return KSETUP::KScript(tree.Path("install.ini"));
    }

    std::vector<std::string> Mistakes(const std::string& lines) {
        std::vector<std::string> found;
        for (const KSETUP::KProductMistake& one : KSETUP::FindValueMistakes(Product(lines))) {
            found.push_back(
                std::to_string(one.line) + " [" + one.text + "] " + one.message.English()
            );
        }
        return found;
    }

    KTEST::TemporaryTree tree;
};

TEST_F(DeclaredValuesTest, TheLinesOfAValueAreReadTogether) {
    const auto values = KSETUP::ReadDeclaredValues(
        Product("port.text=A port, or none\nword.secret=yes\nport=80\nport.pattern=[0-9]*\n")
    );
    ASSERT_EQ(values.size(), 2U);
    EXPECT_EQ(values[0].name, "port");
    EXPECT_EQ(values[0].text, "A port, or none");
    EXPECT_EQ(values[0].standard, "80");
    EXPECT_EQ(values[0].pattern, "[0-9]*");
    EXPECT_EQ(values[0].line, 2U);
    EXPECT_FALSE(values[0].isSecret);
    EXPECT_EQ(values[1].text, "word");
    EXPECT_EQ(values[1].standard, std::nullopt);
    EXPECT_TRUE(values[1].isSecret);
}

TEST_F(DeclaredValuesTest, AnEmptyDefaultIsADefault) {
    EXPECT_EQ(KSETUP::ReadDeclaredValues(Product("more=\n")).at(0).standard, "");
}

TEST_F(DeclaredValuesTest, ASectionOfManyLinesIsToldOnceAndTakesNoTime) {
    std::string lines;
    for (int number = 0; number < 100'000; ++number) {
        lines += "v" + std::to_string(number) + "=x\n";
    }
    EXPECT_THAT(
        Mistakes(lines), ElementsAre("402 [v400] section [values] has more than 400 lines")
    );
}

struct Fault {
    const char* name;
    const char* lines;
    const char* told;

    friend void PrintTo(const Fault& row, std::ostream* out) { *out << row.name; }
};
class DeclaredFaultTest : public DeclaredValuesTest, public ::testing::WithParamInterface<Fault> {};

TEST_P(DeclaredFaultTest, IsToldAtItsLine) {
    EXPECT_THAT(Mistakes(GetParam().lines), ElementsAre(GetParam().told));
}

INSTANTIATE_TEST_SUITE_P(
    Faults,
    DeclaredFaultTest,
    ::testing::Values(
        Fault{"Field", "a.hint=x\na=1", "2 [a.hint] a value has no \"hint\""},
        Fault{"NoField", "a=1\na.=x", "3 [a.] a value has no \"\""},
        Fault{"Name", "1a=x", "2 [1a] \"1a\" is no name of a value"},
        Fault{"Blank", "a b=x", "2 [a b] \"a b\" is no name of a value"},
        Fault{"Engine", "pathTarget=/", "2 [pathTarget] $pathTarget$ is a macro already"},
        Fault{"Secret", "a.secret=true", "2 [a.secret] \"true\" is neither yes nor no"},
        Fault{"Twice", "a=1\na=2", "3 [a] \"a\" stands here twice"},
        Fault{
            "SecretDefault",
            "a.secret=yes\na=x",
            "3 [a] a default of a secret is in the kit, which all can read"},
        Fault{
            "Default",
            "a=x\na.pattern=[0-9]+",
            "2 [a] the default of \"a\" is invalid: it has to match [0-9]+"}
    ),
    KTEST::NameOfRow()
);

TEST_F(DeclaredValuesTest, SoundDeclarationsHaveNoMistakes) {
    EXPECT_THAT(
        Mistakes("a=\na.text=What, now?\nb.secret=no\nb.pattern=.{1,20}\nc_1=$x,y\n"), IsEmpty()
    );
}

/// Typed at a terminal, where no file is read that would refuse it.
TEST_F(DeclaredValuesTest, AControlCharacterIsNoPartOfAValue) {
    const auto values = KSETUP::ReadDeclaredValues(Product("host.text=Name of this host\n"));
    ASSERT_EQ(values.size(), 1U);
    EXPECT_THAT(
        KSETUP::WhyNotValue(values[0], "a\x1b[2Jb").English(), HasSubstr("a control character")
    );
    EXPECT_EQ(KSETUP::WhyNotValue(values[0], "a [2Jb").English(), "");
}

TEST_F(DeclaredValuesTest, OnlyTheValueOfAPutHoldsASecret) {
    const std::vector<KDeclaredValue> values{{"w", "w", std::nullopt, "", true, true, 1}};
    const auto uses = KSETUP::FindValueUses(
        Script("[a]\nprofile=put,f,s,k,x$w$y\nprofile=put,f,s,$w$,v\nprofile=put,f,s,k,v,$w$\n"
               "profile=put,f,,k,$w$\ncommand=run,$w$\ndefaultPath.$os$=$w$\nfile=copy,a,b,c,$w\n"),
        values
    );
    std::vector<unsigned> shown;
    for (const KSETUP::KValueUse& use : uses) {
        if (!KSETUP::WhyNotUse(use).empty()) {
            shown.push_back(use.line.number);
        }
    }
    EXPECT_EQ(uses.size(), 6U);
    EXPECT_THAT(shown, ElementsAre(3, 4, 5, 6, 7));
}

TEST(ValuePatternTest, AllOfTheTextHasToMatch) {
    EXPECT_TRUE(KSETUP::MatchesPattern("abab", "a|ab|abab"));
    EXPECT_FALSE(KSETUP::MatchesPattern("abac", "(ab)*"));
    EXPECT_FALSE(KSETUP::MatchesPattern("xab", "ab"));
    EXPECT_TRUE(KSETUP::MatchesPattern("", "a*"));
    EXPECT_FALSE(KSETUP::MatchesPattern("", "a+"));
}

TEST(ValuePatternTest, LettersAreThoseOfUtf8) {
    EXPECT_TRUE(KSETUP::MatchesPattern("Größe", ".{5}"));
    EXPECT_TRUE(KSETUP::MatchesPattern("ä", "[äöü]"));
    EXPECT_FALSE(KSETUP::MatchesPattern("\xC3", "."));
}

struct Pattern {
    const char* name;
    std::string text;
    const char* why;

    friend void PrintTo(const Pattern& row, std::ostream* out) { *out << row.name; }
};
class InvalidPatternTest : public ::testing::TestWithParam<Pattern> {};

TEST_P(InvalidPatternTest, IsToldWithItsReason) {
    EXPECT_THAT(KSETUP::WhyNoPattern(GetParam().text).English(), HasSubstr(GetParam().why));
}

INSTANTIATE_TEST_SUITE_P(
    Patterns,
    InvalidPatternTest,
    ::testing::Values(
        Pattern{"Bracket", "[a", "Unmatched"},
        Pattern{"Long", std::string(257, 'a'), "longer than 256 bytes"},
        Pattern{"Repeated", "(a{40}){25}", "more than 1000 letters"},
        Pattern{"RepeatedAgain", "a{50}{21}", "more than 1000 letters"},
        Pattern{"RepeatedWithoutEnd", "(a{100,}){11}", "more than 1000 letters"},
        Pattern{"LongAndRepeated", "(" + std::string(240, 'a') + "){5}", "more than 1000 letters"},
        Pattern{"RepeatedSets", "(a[[:alpha:]](b|[](])){201}", "more than 1000 letters"},
        Pattern{"HugeNumber", "a{99999999999999999999}", "more than 1000 letters"},
        Pattern{"Back", "(a)\\1", "refers back"},
        Pattern{"Control", "a\x1b", "control character"}
    ),
    KTEST::NameOfRow()
);

TEST(ValuePatternTest, PatternsOfEverydayAreNone) {
    for (const char* pattern :
         {"[a-f0-9]{8}-[a-f0-9]{4}-[a-f0-9]{4}-[a-f0-9]{4}-[a-f0-9]{12}",
          "([0-9]{1,3}\\.){3}[0-9]{1,3}",
          ".{1,1000}",
          "([]({]{1,9}|[^]{]|[[:alpha:]{]|[.[=a=]-]){2}",
          ""}) {
        EXPECT_EQ(KSETUP::WhyNoPattern(pattern), "") << pattern;
    }
}

TEST(ValuePatternTest, NoPatternTakesLongWithALongText) {
    const std::string text(1000, 'a');
    const std::string patterns[] = {
        "(a*)*b",
        "(a|a)*b",
        "((a{1,9}){1,9}){1,9}b",
        "(.*,){9}x",
        "(a|aa)+$|b",
        "(a|b*|c?|(.|a)*){70}z"};
    for (const std::string& pattern : patterns) {
        ASSERT_TRUE(KSETUP::WhyNoPattern(pattern).empty()) << pattern;
        const auto begun = std::chrono::steady_clock::now();
        static_cast<void>(KSETUP::MatchesPattern(text, pattern));
        EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(5)) << pattern;
    }
}

} // namespace
