// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/KCustomMacro.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>

#include <atomic>
#include <thread>
#include <type_traits>

namespace KTEST {
namespace {

using KSUP::KCustomMacro;
using KSUP::KString;
using KSUP::KUtil;

struct MacroRow {
    const char* name;
    std::string text;
    std::string expanded;

    friend void PrintTo(const MacroRow& row, std::ostream* out) { *out << row.name; }
};

class KCustomMacroTest : public testing::TestWithParam<MacroRow> {
  protected:
    KCustomMacroTest() {
        macros.AddCustomMacro("a", "ONE");
        macros.AddCustomMacro("b", "TWO");
        macros.AddCustomMacro("nothing", "");
        macros.AddCustomMacro("nested", "$a$");
        macros.AddCustomMacro("half", "x$a");
        macros.AddCustomMacro("dollar", "$");
        macros.AddCustomMacro("with blank", "BLANK");
        macros.AddCustomMacro("\xc3\xa9", "ACCENT");
    }
    KCustomMacro macros;
};

TEST_P(KCustomMacroTest, Expands) {
    EXPECT_EQ(macros.ExpandMacros(GetParam().text), GetParam().expanded);
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    KCustomMacroTest,
    testing::ValuesIn(std::vector<MacroRow>{
        {"NoMacro", "plain text", "plain text"},
        {"Empty", "", ""},
        {"Alone", "$a$", "ONE"},
        {"Inside", "x$a$y", "xONEy"},
        {"Touching", "$a$$b$", "ONETWO"},
        {"Repeated", "$a$ $a$", "ONE ONE"},
        {"KnownAndEmpty", "x$nothing$y", "xy"},
        {"Unknown", "x$unknown$y", "x$unknown$y"},
        {"OneDollar", "$", "$"},
        {"OneDollarInside", "5$ each", "5$ each"},
        {"NotEnded", "$a", "$a"},
        {"NotBegun", "a$", "a$"},
        {"TwoDollars", "$$", "$$"},
        {"ThreeDollars", "$$$", "$$$"},
        {"SearchGoesOnAtTheSecondDollar", "$unknown$a$", "$unknownONE"},
        {"SearchGoesOnBehindTwoDollars", "$$a$", "$ONE"},
        {"ManyDollarsBefore", "$$$$a$", "$$$ONE"},
        {"UnknownThenKnown", "$unknown$$a$", "$unknown$ONE"},
        {"PriceThenMacro", "5$ or $a$", "5$ or ONE"},
        {"KnownThenRest", "$a$b$", "ONEb$"},
        {"ValuesAreNotLookedAtAgain", "$nested$", "$a$"},
        {"ValuesDoNotJoinWhatFollows", "$half$$", "x$a$"},
        {"ADollarValueBeginsNothing", "$dollar$a$", "$a$"},
        {"NamesMatchExactly", "$A$ $ a$ $a $", "$A$ $ a$ $a $"},
        {"NamesWithBlanks", "$with blank$", "BLANK"},
        {"NamesOfOtherCharacters", "$\xc3\xa9$", "ACCENT"},
        {"InvalidBytesStay", "\xff$a$\xc3", "\xffONE\xc3"},
        {"NewlinesStay", "\n$a$\n", "\nONE\n"},
    }),
    NameOfRow()
);

TEST_F(KCustomMacroTest, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<KCustomMacro>);
}

TEST_F(KCustomMacroTest, LeavesItsArgumentAlone) {
    const KString text("$a$");
    EXPECT_EQ(macros.ExpandMacros(text), "ONE");
    EXPECT_EQ(text, "$a$");
}

TEST_F(KCustomMacroTest, AddingANameAgainReplacesItsValue) {
    macros.AddCustomMacro("a", "NEW");
    EXPECT_EQ(macros.ExpandMacros("$a$"), "NEW");
    macros.AddCustomMacro("a", "");
    EXPECT_EQ(macros.ExpandMacros("$a$"), "");
}

TEST_F(KCustomMacroTest, LongTextsTakeNoTime) {
    const HangGuard guard;
    EXPECT_EQ(macros.ExpandMacros(std::string(2000000, '$')), std::string(2000000, '$'));
    std::string unknown;
    for (int part = 0; part < 300000; ++part) {
        unknown += "$x";
    }
    EXPECT_EQ(macros.ExpandMacros(unknown), unknown);
}

// The directories of the path map

struct DirectoryRow {
    unsigned id;
    const char* name;

    friend void PrintTo(const DirectoryRow& row, std::ostream* out) { *out << row.name; }
};

class KCustomMacroPathTest : public testing::TestWithParam<DirectoryRow> {
  protected:
    KCustomMacroPathTest() : former(KUtil::GetPathMap(GetParam().id)) {}
    ~KCustomMacroPathTest() override { KUtil::SetPathMap(GetParam().id, former); }
    std::string Macro() const { return "$" + std::string(GetParam().name) + "$"; }

    KString former;
    KCustomMacro macros;
};

TEST_P(KCustomMacroPathTest, IsAMacro) {
    KUtil::SetPathMap(GetParam().id, "/somewhere/" + std::to_string(GetParam().id) + "/");
    EXPECT_EQ(
        macros.ExpandMacros("x" + Macro()), "x/somewhere/" + std::to_string(GetParam().id) + "/"
    );
}

TEST_P(KCustomMacroPathTest, IsReadAtEachExpansion) {
    KUtil::SetPathMap(GetParam().id, "/first");
    EXPECT_EQ(macros.ExpandMacros(Macro()), "/first");
    KUtil::SetPathMap(GetParam().id, "/second");
    EXPECT_EQ(macros.ExpandMacros(Macro()), "/second");
}

INSTANTIATE_TEST_SUITE_P(
    Entries,
    KCustomMacroPathTest,
    testing::ValuesIn(std::vector<DirectoryRow>{
        {2, "pathSource"},           {19, "pathLog"},
        {39, "pathSourceWinX86"},    {40, "pathSourceWinX86_64"},
        {41, "pathTargetWinX86_64"}, {42, "pathTargetWin"},
        {43, "pathTargetWinX86"},    {44, "pathTargetLin"},
        {45, "pathTargetLinX86_64"}, {46, "pathTargetLinX86"},
        {47, "pathTargetMac"},       {48, "pathTargetMacX86_64"},
        {49, "pathTargetMacX86"},    {50, "pathSourceBinX86"},
        {51, "pathSourceBinX86_64"}, {52, "pathTargetBinX86_64"},
        {53, "pathTargetBinX86"},    {54, "pathTargetBin"},
        {55, "pathTargetConfig"},    {56, "pathTargetResource"},
        {57, "pathTarget"},          {58, "pathTargetDatabase"},
        {59, "pathTargetLog"},       {60, "pathTargetTemp"},
    }),
    NameOfRow()
);

TEST(KCustomMacroUnsetTest, AnEntryThatIsNotSetIsUnknown) {
    EXPECT_TRUE(
        PassesAlone("KCustomMacroUnsetTest.DISABLED_KnowsTheTwoEntriesThatAProcessBeginsWith")
    );
}

/// Run by the test above, in a process where nothing has set an entry before.
TEST(KCustomMacroUnsetTest, DISABLED_KnowsTheTwoEntriesThatAProcessBeginsWith) {
    const KCustomMacro macros;
    for (const char* text : {"$pathTarget$", "$pathTargetConfig$", "$pathSourceWinX86$"}) {
        EXPECT_EQ(macros.ExpandMacros(text), text);
    }
    EXPECT_EQ(macros.ExpandMacros("$pathLog$"), "/var/log/");
    EXPECT_EQ(macros.ExpandMacros("$pathSource$"), KUtil::GetPathMap(2));
}

// Product data and custom keys

class KCustomMacroProductTest : public testing::Test {
  protected:
    ~KCustomMacroProductTest() override { Load(""); }
    void Load(const std::string& lines) {
        tree.Write("product.ini", "[product]\n" + lines);
        EXPECT_EQ(SvcLoadProductData(tree.Path("product.ini").c_str()), 0U);
    }

    TemporaryTree tree;
    KCustomMacro macros;
};

TEST_F(KCustomMacroProductTest, ProductDataAreMacros) {
    EXPECT_EQ(
        macros.ExpandMacros("$product$|$serviceName$|$iniFile$|$verInfo$|$buildNumber$"),
        "DPS|dps|dps.ini|0.0.0|0"
    );
    Load("name=P\nserviceName=s\niniFile=i.ini\nversion=1.2\nbuildNumber=7\n");
    EXPECT_EQ(
        macros.ExpandMacros("$product$|$serviceName$|$iniFile$|$verInfo$|$buildNumber$"),
        "P|s|i.ini|1.2|7"
    );
}

TEST_F(KCustomMacroProductTest, TheSystemIsAMacro) {
    EXPECT_EQ(macros.ExpandMacros("defaultPath.$os$"), "defaultPath.lin");
    EXPECT_EQ(macros.ExpandMacros("$arch$"), SvcGetGlobalDataEx()->architecture);
}

TEST_F(KCustomMacroProductTest, DirectoryAndFileNameMayTouch) {
    const KString former = KUtil::GetPathMap(55);
    KUtil::SetPathMap(55, "/opt/p/config/");
    EXPECT_EQ(macros.ExpandMacros("$pathTargetConfig$$iniFile$"), "/opt/p/config/dps.ini");
    EXPECT_EQ(macros.ExpandMacros("/etc/$serviceName$/$serviceName$"), "/etc/dps/dps");
    KUtil::SetPathMap(55, former);
}

TEST_F(KCustomMacroProductTest, CustomKeysAreMacrosReadAtEachExpansion) {
    static unsigned round = 0; // a key that was set once stays, also when the test is repeated
    const std::string key = "macroKey1." + std::to_string(++round);
    EXPECT_EQ(macros.ExpandMacros("$" + key + "$"), "$" + key + "$");
    EXPECT_EQ(SvcSetCustomKey(0, 0, key.c_str(), "2.1-4711"), 0U);
    EXPECT_EQ(macros.ExpandMacros("$" + key + "$"), "2.1-4711");
    EXPECT_EQ(SvcSetCustomKey(0, 0, key.c_str(), ""), 0U);
    EXPECT_EQ(macros.ExpandMacros("[$" + key + "$]"), "[]");
}

TEST_F(KCustomMacroProductTest, TheSetsOwnMacrosComeFirst) {
    EXPECT_EQ(SvcSetCustomKey(0, 0, "macroKey2", "key"), 0U);
    macros.AddCustomMacro("product", "own product");
    macros.AddCustomMacro("pathLog", "own path");
    macros.AddCustomMacro("macroKey2", "own key");
    EXPECT_EQ(
        macros.ExpandMacros("$product$|$pathLog$|$macroKey2$"), "own product|own path|own key"
    );
}

TEST_F(KCustomMacroProductTest, PathsAndProductDataComeBeforeCustomKeys) {
    EXPECT_EQ(SvcSetCustomKey(0, 0, "pathLog", "key"), 0U);
    EXPECT_EQ(SvcSetCustomKey(0, 0, "product", "key"), 0U);
    EXPECT_EQ(macros.ExpandMacros("$pathLog$|$product$"), "/var/log/|DPS");
}

TEST_F(KCustomMacroProductTest, ThreadsGetCompleteResults) {
    EXPECT_EQ(SvcSetCustomKey(0, 0, "macroKey3", "aaaaaaaaaa"), 0U);
    const KString formerPath = KUtil::GetPathMap(60);
    std::atomic<bool> torn{false};
    std::thread other([&] {
        for (int step = 0; step < 500; ++step) {
            torn = torn || macros.ExpandMacros("$product$ $serviceName$") != "DPS dps";
            const std::string value(10, static_cast<char>('a' + step % 26));
            EXPECT_EQ(SvcSetCustomKey(0, 0, "macroKey3", value.c_str()), 0U);
            KUtil::SetPathMap(60, value);
        }
    });
    for (int step = 0; step < 500; ++step) {
        const std::string value = macros.ExpandMacros("$macroKey3$").c_str();
        torn = torn || value != std::string(10, value[0]);
        macros.ExpandMacros("$pathTargetTemp$");
    }
    other.join();
    KUtil::SetPathMap(60, formerPath);
    EXPECT_FALSE(torn);
}

} // namespace
} // namespace KTEST
