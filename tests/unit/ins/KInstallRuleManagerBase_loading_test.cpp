// SPDX-License-Identifier: MIT
//
// How lines become rules: keywords, sections of a script, options of the command line.
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/NameOfRow.h"
#include "../../support/SetupLog.h"
#include "Injected.h"

#include <ins/KInstallRuleManager.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>

#include <gmock/gmock.h>

#include <cstring>

namespace {

using KINS::KInstallRuleManager;
using KSUP::KString;
using KTEST::ErrorOf;
using KTEST::PlaceWithoutLine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Keyword {
    const char* name;
    const char* line;
    const char* description;
};

class KeywordTest : public KTEST::RuleTest, public ::testing::WithParamInterface<Keyword> {};

TEST_P(KeywordTest, MakesItsRule) {
    EXPECT_EQ(DescriptionOf(GetParam().name, GetParam().line), GetParam().description);
}

INSTANTIATE_TEST_SUITE_P(
    The,
    KeywordTest,
    ::testing::Values(
        Keyword{"file", "copy,a,/s,/t", "File copy /s/a to /t"},
        Keyword{"directory", "create,/t", "Create path /t"},
        Keyword{"process", "start,true", "Execute command start,true"},
        Keyword{"service", "start,dps", "Service control start,dps"},
        Keyword{"profile", "create,/t", "Create profile /t"}
    ),
    KTEST::NameOfRow()
);

class UnknownKeywordTest : public KTEST::RuleTest,
                           public ::testing::WithParamInterface<const char*> {};

TEST_P(UnknownKeywordTest, IsLoggedAndIsError7000) {
    const std::string type = GetParam();
    const KSUP::KError error = RefusalOf(type.c_str(), "copy,a,b,c");
    EXPECT_THAT(
        PlaceWithoutLine(error),
        ::testing::StartsWith("400 7000.0 ins/KInstallRuleManagerBase:? AddRule")
    );
    EXPECT_THAT(trace.Texts(400), ElementsAre(error.GetSummary().c_str()));
    EXPECT_THAT(
        LogLines(), ElementsAre("KINS::KInstallRuleManager: Unknown rule " + type + " copy,a,b,c")
    );
    EXPECT_EQ(manager.GetRuleCount(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    AKey,
    UnknownKeywordTest,
    ::testing::Values("File", "FILE", "files", "fil", "", " file", "defaultPath.$os$", "processes")
);

// Parsing helpers

struct FirstField {
    const char* name;
    const char* line;
    const char* type;
    unsigned order;
};

class FirstFieldTest : public KTEST::RuleTest, public ::testing::WithParamInterface<FirstField> {};

TEST_P(FirstFieldTest, IsLoweredAsTypeAndReadAsOrder) {
    EXPECT_STREQ(manager.ParseRuleType(GetParam().line).c_str(), GetParam().type);
    EXPECT_EQ(manager.ParseRuleOrderId(GetParam().line), GetParam().order);
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    FirstFieldTest,
    ::testing::Values(
        FirstField{"AWord", "Copy,a,b", "copy", 1},
        FirstField{"AWordAlone", "COPY", "copy", 1},
        FirstField{"ANumber", "12,x", "12", 12},
        FirstField{"ANumberAlone", "7", "7", 7},
        FirstField{"NotANumber", "abc,x", "abc", 1},
        FirstField{"AnEmptyLine", "", "", 1},
        FirstField{"AnEmptyField", ",12", "", 1},
        FirstField{"AHexadecimalNumber", "0X1f,x", "0x1f", 31},
        FirstField{"ANumberWithMore", "12abc,x", "12abc", 12},
        FirstField{"ANumberThatIsTooLarge", "4294967296,x", "4294967296", 1},
        FirstField{"ANegativeNumberWrapsAround", "-1,x", "-1", 4294967295U},
        FirstField{
            "LettersBeyondAsciiStay",
            "\xc3\x84"
            "B,x",
            "\xc3\x84"
            "b",
            1}
    ),
    KTEST::NameOfRow()
);

// Loading sections

class LoadSectionTest : public KTEST::RuleTest {
  protected:
    void Load(std::string_view script, const char* section = "install") {
        GivenScript(script);
        Initialize();
        manager.LoadSection(section);
    }
    std::string Architecture() const { return SvcGetGlobalDataEx()->architecture; }
    std::vector<std::string> LastLogLines(std::size_t count) const {
        const std::vector<std::string> lines = LogLines();
        const std::size_t first = lines.size() < count ? 0 : lines.size() - count;
        return {lines.begin() + static_cast<std::ptrdiff_t>(first), lines.end()};
    }
};

TEST_F(LoadSectionTest, EveryLineBecomesARuleInFileOrder) {
    Load("[install]\nfile=copy,c,/s,/t\nfile=copy,a,/s,/t\nfile=copy,c,/s,/"
         "t\n[other]\nfile=copy,z,/s,/t\n");
    EXPECT_THAT(
        Added(), ElementsAre("File copy /s/c to /t", "File copy /s/a to /t", "File copy /s/c to /t")
    );
    EXPECT_EQ(manager.GetRuleCount(), 3U);
}

TEST_F(LoadSectionTest, TheSectionIsLoggedBeforeItsRules) {
    Load("[install]\ndirectory=create,/t\n");
    EXPECT_EQ(
        (std::vector<std::string>{
            "KINS::KInstallRuleManager: Processing section -> install",
            "KINS::KInstallRuleManager: Adding rule -> Create path /t"}),
        LastLogLines(2)
    );
}

TEST_F(LoadSectionTest, TheArchitecturesSectionFollowsWithoutALogLineOfItsOwn) {
    Load(
        "[install." + Architecture() +
        "]\ndirectory=create,/mine\n[install]\ndirectory=create,/all\n"
        "[install.other]\ndirectory=create,/no\n[install." +
        Architecture() + "x]\ndirectory=create,/no\n"
    );
    EXPECT_THAT(Added(), ElementsAre("Create path /all", "Create path /mine"));
    EXPECT_THAT(
        KTEST::EntriesAfter("KINS::KInstallRuleManager: Processing section -> ", LogLines()),
        ElementsAre("install")
    );
}

TEST_F(LoadSectionTest, SectionNamesAreMatchedWholeAndInCase) {
    Load("[Install]\ndirectory=create,/a\n[install2]\ndirectory=create,/"
         "b\n[ins]\ndirectory=create,/c\n");
    EXPECT_EQ(manager.GetRuleCount(), 0U);
}

TEST_F(LoadSectionTest, AMissingSectionAddsNothing) {
    Load("[remove]\ndirectory=create,/a\n");
    EXPECT_EQ(manager.GetRuleCount(), 0U);
    EXPECT_EQ(LogLines().back(), "KINS::KInstallRuleManager: Processing section -> install");
}

TEST_F(LoadSectionTest, LoadingTwiceAppendsTwice) {
    Load("[install]\ndirectory=create,/a\ndirectory=create,/b\n");
    manager.LoadSection("install");
    EXPECT_THAT(
        Added(), ElementsAre("Create path /a", "Create path /b", "Create path /a", "Create path /b")
    );
}

TEST_F(LoadSectionTest, AnUnknownKeyEndsTheLoadAndKeepsTheRulesBeforeIt) {
    GivenScript("[install]\ndirectory=create,/a\nFile=copy,a,b,c\ndirectory=create,/b\n");
    Initialize();
    EXPECT_EQ(ErrorOf([&] { manager.LoadSection("install"); }).GetCode(), 7000U);
    EXPECT_EQ(LogLines().back(), "KINS::KInstallRuleManager: Unknown rule File copy,a,b,c");
    EXPECT_EQ(manager.GetRuleCount(), 1U);
}

TEST_F(LoadSectionTest, AMalformedLineEndsTheLoadUnchanged) {
    GivenScript("[install]\ndirectory=create,/a\ndirectory=create\ndirectory=create,/b\n");
    Initialize();
    const KSUP::KError error = ErrorOf([&] { manager.LoadSection("install"); });
    EXPECT_EQ(KTEST::Place(error), "48 7000.0 ins/KDirectoryRule:53 ParseRule \"create\"");
    EXPECT_EQ(manager.GetRuleCount(), 1U);
}

TEST_F(LoadSectionTest, TheDefaultPathIsPassedOver) {
    Load("[install]\ndirectory=create,/a\ndefaultPath.$os$=/opt/x\ndirectory=create,/b\n");
    EXPECT_THAT(Added(), ElementsAre("Create path /a", "Create path /b"));
}

TEST_F(LoadSectionTest, NoOtherDefaultPathIsPassedOver) {
    GivenScript("[install]\ndefaultPath.lin=/opt/x\n");
    Initialize();
    EXPECT_EQ(ErrorOf([&] { manager.LoadSection("install"); }).GetCode(), 7000U);
    EXPECT_EQ(LogLines().back(), "KINS::KInstallRuleManager: Unknown rule defaultPath.lin /opt/x");
}

TEST_F(LoadSectionTest, IncludedRulesStandBeforeTheRuleThatIncludesThem) {
    Load("[install]\ndirectory=create,/1\nsection=common\ndirectory=create,/"
         "2\n[common]\ndirectory=create,/c\n");
    EXPECT_THAT(
        Added(),
        ElementsAre("Create path /1", "Create path /c", "Include section common", "Create path /2")
    );
    EXPECT_EQ(manager.GetRuleCount(), 3U);
    EXPECT_THAT(
        LogLines(),
        ::testing::IsSupersetOf({
            "KINS::KInstallRuleManager: Processing section -> install",
            "KINS::KInstallRuleManager: Processing section -> common",
        })
    );
}

TEST_F(LoadSectionTest, TheIncludedSectionIsLoggedBeforeItsRulesAndThoseBeforeTheInclusion) {
    Load("[install]\nsection=common\n[common]\ndirectory=create,/c\n");
    EXPECT_EQ(
        (std::vector<std::string>{
            "KINS::KInstallRuleManager: Processing section -> install",
            "KINS::KInstallRuleManager: Processing section -> common",
            "KINS::KInstallRuleManager: Adding rule -> Create path /c",
            "KINS::KInstallRuleManager: Adding rule -> Include section common"}),
        LastLogLines(4)
    );
}

TEST_F(LoadSectionTest, InclusionNestsDepthFirstWithTheArchitecturesSections) {
    Load(
        "[install]\nsection=a\ndirectory=create,/i\n"
        "[a]\nsection=b\ndirectory=create,/a\n"
        "[a." +
        Architecture() +
        "]\ndirectory=create,/a-arch\n"
        "[b]\ndirectory=create,/b\n"
        "[b." +
        Architecture() +
        "]\nsection=c\n"
        "[c]\ndirectory=create,/c\n"
    );
    EXPECT_THAT(
        Added(),
        ElementsAre(
            "Create path /b",
            "Create path /c",
            "Include section c",
            "Include section b",
            "Create path /a",
            "Create path /a-arch",
            "Include section a",
            "Create path /i"
        )
    );
    EXPECT_EQ(manager.GetRuleCount(), 5U);
}

TEST_F(LoadSectionTest, ASectionIncludedTwiceIsThereTwice) {
    Load("[install]\nsection=c\nsection=c\n[c]\ndirectory=create,/c\n");
    EXPECT_THAT(
        Added(),
        ElementsAre("Create path /c", "Include section c", "Create path /c", "Include section c")
    );
}

TEST_F(LoadSectionTest, AnInclusionOfNothingIsItselfAdded) {
    Load("[install]\nsection=none\n");
    EXPECT_THAT(Added(), ElementsAre("Include section none"));
    EXPECT_EQ(manager.GetRuleCount(), 0U);
}

TEST_F(LoadSectionTest, AnInclusionMayNameItsSectionByAMacro) {
    Load("[install]\nsection=$os$\n[lin]\ndirectory=create,/l\n[$os$]\ndirectory=create,/no\n");
    EXPECT_THAT(Added(), ElementsAre("Create path /l", "Include section lin"));
}

TEST_F(LoadSectionTest, AnErrorInAnIncludedSectionEndsTheOuterOneToo) {
    GivenScript("[install]\ndirectory=create,/1\nsection=c\ndirectory=create,/2\n"
                "[c]\ndirectory=create,/c\nfile=copy\ndirectory=create,/d\n");
    Initialize();
    EXPECT_EQ(ErrorOf([&] { manager.LoadSection("install"); }).GetCode(), 7000U);
    EXPECT_THAT(Added(), ElementsAre("Create path /1", "Create path /c"));
    EXPECT_EQ(manager.GetRuleCount(), 2U);
}

TEST_F(LoadSectionTest, ALineMayBeOfAnyLength) {
    const std::string name(100000, 'x');
    Load("[install]\ndirectory=create,/" + name + "\n");
    EXPECT_THAT(Added(), ElementsAre("Create path /" + name));
}

TEST_F(LoadSectionTest, LoadingGoesThroughTheVirtualAddRule) {
    class Counting : public KInstallRuleManager {
      public:
        using KInstallRuleManager::AddRule;
        using KInstallRuleManager::KInstallRuleManager;
        void AddRule(const KString& type, const KString& line) override {
            lines.push_back(std::string(type.c_str()) + '=' + line.c_str());
        }
        std::vector<std::string> lines;
    };
    GivenScript("[install]\nanything=goes\nfile=\n=no key\n");
    Initialize();
    Counting counting(installer.get());
    counting.LoadSection("install");
    EXPECT_THAT(counting.lines, ElementsAre("anything=goes", "file=", "=no key"));
}

// Rules of the command line

class LoadCommandLineRulesTest : public KTEST::RuleTest {
  protected:
    LoadCommandLineRulesTest() { KSUP::KUtil::SetPathMap(55, "/p/config/"); }
};

TEST_F(LoadCommandLineRulesTest, WithoutTheOptionNothingIsAddedOrLogged) {
    world.GivenArguments({"--other=x", "--addProfileLines=a", "plain"});
    manager.LoadCommandLineRules();
    EXPECT_EQ(manager.GetRuleCount(), 0U);
    EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(LoadCommandLineRulesTest, EveryOptionIsAProfileRuleInOrder) {
    world.GivenArguments(
        {"--addProfileLine=General,LogLevel,3",
         "--addProfileLine",
         "General,Name,a b",
         "-addProfileLine=x,y,z"}
    );
    manager.LoadCommandLineRules();
    EXPECT_THAT(
        Added(),
        ElementsAre(
            "Put profile option LogLevel=3", "Put profile option Name=a b", "Put profile option y=z"
        )
    );
}

TEST_F(LoadCommandLineRulesTest, AValueStandsVerbatimBehindTheFixedFields) {
    class Recording : public KInstallRuleManager {
      public:
        using KInstallRuleManager::AddRule;
        using KInstallRuleManager::KInstallRuleManager;
        void AddRule(const KString& type, const KString& line) override {
            lines.push_back(std::string(type.c_str()) + '=' + line.c_str());
        }
        std::vector<std::string> lines;
    };
    Recording recording(installer.get());
    world.GivenArguments({"--addProfileLine=a,,\"b\" ' \\ $os$,c"});
    recording.LoadCommandLineRules();
    EXPECT_THAT(
        recording.lines, ElementsAre("profile=put,$pathTargetConfig$$iniFile$,a,,\"b\" ' \\ $os$,c")
    );
}

TEST_F(LoadCommandLineRulesTest, AValueHoldsUpTo511Bytes) {
    const std::string longest = "s,k," + std::string(507, 'v');
    world.GivenArguments({"--addProfileLine=" + longest});
    manager.LoadCommandLineRules();
    EXPECT_THAT(Added(), ElementsAre("Put profile option k=" + std::string(507, 'v')));
}

TEST_F(LoadCommandLineRulesTest, AValueOfNoBytesIsARuleOfTwoFields) {
    world.GivenArguments({"--addProfileLine=", "--addProfileLine", ""});
    manager.LoadCommandLineRules();
    EXPECT_THAT(Added(), ElementsAre("Put profile option =", "Put profile option ="));
}

TEST_F(LoadCommandLineRulesTest, QuotesAndNewlinesReachTheRule) {
    world.GivenArguments({"--addProfileLine=s,\"k\",'a\nb\\"});
    manager.LoadCommandLineRules();
    ASSERT_EQ(manager.GetRuleCount(), 1U);
    EXPECT_EQ(ErrorOf([&] { manager.ExecuteRules(); }).GetCode(), 36U)
        << "a profile has no line for it";
}

TEST_F(LoadCommandLineRulesTest, AThousandOptionsAreAThousandRules) {
    std::vector<std::string> arguments;
    std::vector<std::string> added;
    for (int option = 0; option < 1000; ++option) {
        const std::string number = std::to_string(option);
        arguments.push_back("--addProfileLine=s,k" + number + ",v");
        added.push_back("Put profile option k" + number + "=v");
    }
    world.GivenArguments(arguments);
    manager.LoadCommandLineRules();
    EXPECT_EQ(Added(), added);
}

struct UnreadableOption {
    const char* name;
    std::vector<std::string> arguments;
};

class UnreadableOptionTest : public LoadCommandLineRulesTest,
                             public ::testing::WithParamInterface<UnreadableOption> {};

TEST_P(UnreadableOptionTest, IsError36AndAddsNoRuleAtAll) {
    world.GivenArguments(GetParam().arguments);
    const KSUP::KError error = ErrorOf([&] { manager.LoadCommandLineRules(); });
    EXPECT_EQ(
        PlaceWithoutLine(error),
        "400 36.0 ins/KInstallRuleManagerBase:? LoadCommandLineRules \"Error parsing command line "
        "string while loading command line installer rules\""
    );
    EXPECT_THAT(trace.Texts(400), ElementsAre(error.GetSummary().c_str()));
    EXPECT_EQ(manager.GetRuleCount(), 0U);
    EXPECT_THAT(LogLines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    AnOption,
    UnreadableOptionTest,
    ::testing::Values(
        UnreadableOption{"WithoutAValue", {"--addProfileLine=a,b,c", "--addProfileLine"}},
        UnreadableOption{
            "Of512Bytes", {"--addProfileLine=a,b,c", "--addProfileLine=" + std::string(512, 'v')}}
    ),
    KTEST::NameOfRow()
);

TEST_F(LoadCommandLineRulesTest, AValueThatIsNoRuleKeepsTheRulesBeforeIt) {
    world.GivenArguments(
        {"--addProfileLine=a,b,c", "--addProfileLine=General", "--addProfileLine=d,e,f"}
    );
    const KSUP::KError error = ErrorOf([&] { manager.LoadCommandLineRules(); });
    EXPECT_EQ(
        KTEST::Place(error),
        "48 7000.0 ins/KProfileRule:57 ParseRule \"put,/p/config/dps.ini,General\""
    );
    EXPECT_EQ(manager.GetRuleCount(), 1U);
}

TEST_F(LoadCommandLineRulesTest, TheSupportLibraryIsAskedAsAgreed) {
    KTEST::Injection inject;
    std::vector<std::string> asked;
    inject.SvcEnumerateStringFromCommandLine =
        [&](const char* prefix, const char* name, unsigned size, unsigned* cursor, char* buffer) {
            asked.push_back(
                std::string(prefix) + '|' + name + '|' + std::to_string(size) + '|' +
                std::to_string(*cursor)
            );
            *cursor += 10;
            std::strcpy(buffer, "s,k,v");
            return asked.size() < 3 ? 0U : 64U;
        };
    manager.LoadCommandLineRules();
    EXPECT_THAT(
        asked,
        ElementsAre("|addProfileLine|512|0", "|addProfileLine|512|10", "|addProfileLine|512|20")
    );
    EXPECT_EQ(manager.GetRuleCount(), 2U);
}

TEST_F(LoadCommandLineRulesTest, AnyOtherStatusIsTheErrorsCode) {
    KTEST::Injection inject;
    inject.SvcEnumerateStringFromCommandLine =
        [](const char*, const char*, unsigned, unsigned*, char*) { return 4711U; };
    EXPECT_EQ(ErrorOf([&] { manager.LoadCommandLineRules(); }).GetCode(), 4711U);
}

} // namespace
