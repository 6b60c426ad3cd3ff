// SPDX-License-Identifier: MIT
//
// KStringSearch_test.cpp has what is found, split and replaced.
#include "../../support/NameOfRow.h"
#include "Common.h"

#include <sup++/KString.h>

#include <boost/shared_ptr.hpp>

#include <iomanip>
#include <limits>
#include <map>
#include <sstream>
#include <thread>
#include <type_traits>

namespace KTEST {
namespace {

using KSUP::KString;
using testing::ElementsAre;

constexpr unsigned toTheEnd = std::numeric_limits<unsigned>::max();
constexpr const char* nullText = nullptr;

/// The remembered count, the last member: all ones while it is not counted.
std::uint32_t RememberedCount(const KString& text) {
    struct Layout {
        void* table;
        std::string text;
        boost::shared_ptr<unsigned short[]> wideCopy;
        std::uint32_t count;
    };
    static_assert(sizeof(KString) == sizeof(Layout));
    std::uint32_t count = 0;
    std::memcpy(
        &count, reinterpret_cast<const char*>(&text) + offsetof(Layout, count), sizeof count
    );
    return count;
}

TEST(KStringTest, IsMadeFromTextsOnly) {
    EXPECT_TRUE((std::is_convertible_v<const char*, KString>));
    EXPECT_TRUE((std::is_convertible_v<std::string, KString>));
    EXPECT_FALSE((std::is_constructible_v<KString, int>));
    EXPECT_FALSE((std::is_constructible_v<KString, char>));
    EXPECT_FALSE((std::is_constructible_v<KString, bool>));
    EXPECT_FALSE((std::is_constructible_v<KString, std::size_t>));
    EXPECT_FALSE((std::is_convertible_v<KString, const char*>));
    EXPECT_TRUE(std::has_virtual_destructor_v<KString>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<KString>);
}

TEST(KStringTest, ANullTextIsEmptyEverywhere) {
    KString text(nullText);
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_STREQ(text.c_str(), "");
    EXPECT_TRUE(text == nullText);
    text = "abc";
    EXPECT_EQ(text += nullText, "abc");
    EXPECT_EQ(text.Cat(nullptr, 3), "abc");
    EXPECT_EQ(text + nullText, "abc");
    EXPECT_EQ(nullText + text, "abc");
    EXPECT_EQ(text.Replace(nullptr, "x", 0, toTheEnd, true), 0U);
    EXPECT_EQ(text.Replace("b", nullptr, 0, toTheEnd, true), 1U);
    EXPECT_EQ(text, "ac");
    EXPECT_EQ(text.Find(nullptr, 0, true), 0U);
    text = nullText;
    EXPECT_TRUE(text.IsEmpty());
}

TEST(KStringTest, EndsAtANul) {
    EXPECT_EQ(KString(std::string("ab\0cd", 5)), "ab");
    const std::string named("ab\0cd", 5);
    const KString text(named);
    EXPECT_EQ(text.GetSize(), 2U);
    KString tail("x");
    tail.Cat("ab\0cd", 5);
    EXPECT_EQ(tail.GetSize(), 3U);
    EXPECT_EQ(tail, "xab");
}

TEST(KStringTest, CountsBytesAndCharacters) {
    const KString text("a\xc3\xa9\xf0\x9f\x98\x80\xff");
    EXPECT_EQ(text.GetSize(), 8U);
    EXPECT_EQ(text.GetCount(), 4U);
    EXPECT_FALSE(text.IsEmpty());
    EXPECT_EQ(KString().GetCount(), 0U);
    EXPECT_EQ(KString().GetSize(), 0U);
}

TEST(KStringTest, GivesItsBytesUnderBothNames) {
    const KString text("abc");
    EXPECT_STREQ(text.GetText(), "abc");
    EXPECT_EQ(text.GetText(), text.c_str());
}

TEST(KStringTest, ComparesByteWiseWithTextsOnBothSides) {
    const KString text("b");
    EXPECT_TRUE(text == KString("b") && text == "b" && "b" == text);
    EXPECT_TRUE(text != KString("c") && text != "c" && "c" != text);
    EXPECT_TRUE(text < KString("c") && text < "c" && "a" < text);
    EXPECT_FALSE(text < KString("b") || text < "b" || "b" < text);
    EXPECT_TRUE(KString("\x7f") < KString("\x80"));
    EXPECT_TRUE(KString("a") < KString("ab"));
    EXPECT_TRUE(KString("B") < KString("a"));
}

TEST(KStringTest, OrdersTheKeysOfAMap) {
    const std::map<KString, int> map{{"b", 2}, {"\xc3\xa9", 3}, {"a", 1}, {"B", 0}};
    std::vector<int> values;
    for (const auto& entry : map) {
        values.push_back(entry.second);
    }
    EXPECT_THAT(values, ElementsAre(0, 1, 2, 3));
}

TEST(KStringTest, CopiesAreIndependent) {
    KString original("abc");
    EXPECT_EQ(original.GetCount(), 3U);
    KString copy(original);
    copy += "d";
    EXPECT_EQ(original, "abc");
    EXPECT_EQ(copy, "abcd");
    EXPECT_EQ(copy.GetCount(), 4U);
    original = copy;
    copy.Truncate(1);
    EXPECT_EQ(original, "abcd");
}

TEST(KStringTest, AMovedFromTextCanBeUsedAgain) {
    KString source("abc");
    EXPECT_EQ(source.GetCount(), 3U);
    const KString target(std::move(source));
    EXPECT_EQ(target, "abc");
    EXPECT_EQ(target.GetCount(), 3U);
    source = "z"; // NOLINT(bugprone-use-after-move): what is tested
    EXPECT_EQ(source.GetCount(), 1U);
    KString assigned;
    assigned = std::move(source);
    EXPECT_EQ(assigned, "z");
}

TEST(KStringTest, SurvivesBeingGivenItself) {
    KString text("ab");
    const KString& same = text;
    text = same;
    EXPECT_EQ(text, "ab");
    text += same;
    EXPECT_EQ(text, "abab");
    text += text.c_str();
    EXPECT_EQ(text, "abababab");
    text.Cat(text.c_str(), 2);
    EXPECT_EQ(text, "ababababab");
    text = text.c_str() + 7;
    EXPECT_EQ(text, "bab");
    EXPECT_EQ(text.Replace("a", text.c_str(), 0, toTheEnd, true), 1U);
    EXPECT_EQ(text, "bbabb");
}

TEST(KStringTest, AppendsTextsAndBytes) {
    KString text("a");
    text += KString("b");
    text += "c";
    text.Cat("defg", 2);
    EXPECT_EQ(text, "abcde");
    EXPECT_EQ(text.Cat("x", 0), "abcde");
}

TEST(KStringTest, JoinsTexts) {
    const KString right("/lib");
    EXPECT_EQ("/opt" + right, "/opt/lib");
    EXPECT_EQ(right + "/x", "/lib/x");
    EXPECT_EQ(right + right, "/lib/lib");
    EXPECT_EQ(KString("/a") + right + "/b" + right, "/a/lib/b/lib");
    EXPECT_EQ(right, "/lib");
}

// What is remembered

struct ChangeRow {
    const char* name;
    void (*change)(KString& text);
    const char* result;

    friend void PrintTo(const ChangeRow& row, std::ostream* out) { *out << row.name; }
};

class KStringChangeTest : public testing::TestWithParam<ChangeRow> {
  protected:
    KString text{"a\xc3\xa9"
                 "Bc"};
};

TEST_P(KStringChangeTest, ForgetsTheCount) {
    EXPECT_EQ(RememberedCount(text), toTheEnd);
    EXPECT_EQ(text.GetCount(), 4U);
    EXPECT_EQ(RememberedCount(text), 4U);
    GetParam().change(text);
    EXPECT_EQ(text, GetParam().result);
    EXPECT_EQ(RememberedCount(text), toTheEnd);
    EXPECT_EQ(text.GetCount(), KString(GetParam().result).GetCount());
}

TEST_P(KStringChangeTest, ForgetsTheWideCopy) {
    text.GetWideCopy();
    GetParam().change(text);
    const unsigned short* wide = text.GetWideCopy();
    unsigned units = 0;
    while (wide[units] != 0) {
        ++units;
    }
    EXPECT_EQ(KString(GetParam().result).GetCount(), units) << "one unit for each of these";
}

INSTANTIATE_TEST_SUITE_P(
    Changes,
    KStringChangeTest,
    testing::ValuesIn(std::vector<ChangeRow>{
        {"AppendText",
         [](KString& text) { text += KString("xyz"); },
         "a\xc3\xa9"
         "Bcxyz"},
        {"AppendBytes",
         [](KString& text) { text += "xyz"; },
         "a\xc3\xa9"
         "Bcxyz"},
        {"Cat",
         [](KString& text) { text.Cat("xyz", 2); },
         "a\xc3\xa9"
         "Bcxy"},
        {"Assign", [](KString& text) { text = "other"; }, "other"},
        {"Replace",
         [](KString& text) { text.Replace("a", "long", 0, toTheEnd, true); },
         "long\xc3\xa9"
         "Bc"},
        {"Truncate", [](KString& text) { text.Truncate(2); }, "a\xc3\xa9"},
        {"TruncateBehindTheEnd",
         [](KString& text) { text.Truncate(9); },
         "a\xc3\xa9"
         "Bc"},
        {"MakeLower",
         [](KString& text) { text.MakeLower(); },
         "a\xc3\xa9"
         "bc"},
    }),
    NameOfRow()
);

TEST(KStringTest, QuestionsDoNotForgetTheCount) {
    const KString text("a,b");
    EXPECT_EQ(text.GetCount(), 3U);
    EXPECT_EQ(text.Find(",", 0, true), 1U);
    EXPECT_EQ(text.Left(1), "a");
    EXPECT_EQ(RememberedCount(text), 3U);
}

TEST(KStringTest, CountsOnSeveralThreadsAtOnce) {
    const KString text(std::string(3000, 'x'));
    std::vector<std::thread> threads;
    std::vector<unsigned> counts(4);
    for (unsigned& count : counts) {
        threads.emplace_back([&text, &count] { count = text.GetCount(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(counts, testing::Each(3000U));
}

TEST(KStringTest, TheWideCopyIsUtf16) {
    KString text("a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");
    const unsigned short* wide = text.GetWideCopy();
    const std::vector<unsigned short> units(wide, wide + 6);
    EXPECT_THAT(units, ElementsAre('a', 0xe9, 0x20ac, 0xd83d, 0xde00, 0));
    EXPECT_EQ(KString().GetWideCopy()[0], 0);
}

TEST(KStringTest, TheWideCopyIsSharedByCopiesUntilOneChanges) {
    KString original("abc");
    const unsigned short* wide = original.GetWideCopy();
    EXPECT_EQ(original.GetWideCopy(), wide) << "made once";
    KString copy(original);
    EXPECT_EQ(copy.GetWideCopy(), wide);
    copy += "d";
    EXPECT_NE(copy.GetWideCopy(), wide);
    EXPECT_EQ(original.GetWideCopy(), wide);
    EXPECT_EQ(wide[3], 0);
}

// Left, Right, Truncate, MakeLower

TEST(KStringTest, LeftGivesTheFirstCharacters) {
    const KString text("a\xc3\xa9"
                       "bc");
    EXPECT_EQ(text.Left(0), "");
    EXPECT_EQ(text.Left(2), "a\xc3\xa9");
    EXPECT_EQ(text.Left(4), text);
    EXPECT_EQ(text.Left(5), text);
    EXPECT_EQ(text.Left(toTheEnd), text);
    EXPECT_EQ(KString().Left(3), "");
}

TEST(KStringTest, RightGivesTheLastCharacters) {
    const KString text("a\xc3\xa9"
                       "bc");
    EXPECT_EQ(text.Right(0), "");
    EXPECT_EQ(text.Right(2), "bc");
    EXPECT_EQ(
        text.Right(3),
        "\xc3\xa9"
        "bc"
    );
    EXPECT_EQ(text.Right(4), text);
    EXPECT_EQ(text.Right(5), text);
    EXPECT_EQ(text.Right(toTheEnd), text);
    EXPECT_EQ(KString().Right(3), "");
}

TEST(KStringTest, TruncateCutsAtCharacters) {
    KString text("a\xc3\xa9"
                 "bc");
    EXPECT_EQ(
        text.Truncate(9),
        "a\xc3\xa9"
        "bc"
    );
    EXPECT_EQ(
        text.Truncate(4),
        "a\xc3\xa9"
        "bc"
    );
    KString& same = text.Truncate(2);
    EXPECT_EQ(&same, &text);
    EXPECT_EQ(text, "a\xc3\xa9");
    EXPECT_EQ(text.Truncate(0), "");
    EXPECT_EQ(text.Truncate(0), "");
}

TEST(KStringTest, MakeLowerLowersAsciiOnly) {
    KString text("FILE,Copy,\xc3\x89\xff");
    KString& same = text.MakeLower();
    EXPECT_EQ(&same, &text);
    EXPECT_EQ(text, "file,copy,\xc3\x89\xff");
    EXPECT_EQ(KString().MakeLower(), "");
}

TEST(KStringTest, LongTextsKeepTheirPositions) {
    std::string bytes;
    for (int pair = 0; pair < 20000; ++pair) {
        bytes += "\xc3\xa9x";
    }
    KString text(bytes);
    EXPECT_EQ(text.GetCount(), 40000U);
    EXPECT_EQ(text.Find("x", 30000, true), 30001U);
    EXPECT_EQ(text.Replace("x", "", 0, toTheEnd, true), 20000U);
    EXPECT_EQ(text.GetCount(), 20000U);
}

} // namespace
TEST(KStringTest, IsWrittenToAStreamAsAnyTextIs) {
    std::ostringstream stream;
    stream << KString("a") << '|' << std::setw(3) << KString("b") << '|' << KString() << '|';
    EXPECT_EQ(stream.str(), "a|  b||");
}

} // namespace KTEST
