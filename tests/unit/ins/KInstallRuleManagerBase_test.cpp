// SPDX-License-Identifier: MIT
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/NameOfRow.h"
#include "../../support/SetupLog.h"
#include "../../support/SlotOf.h"
#include "Injected.h"

#include <ins/KDirectoryRule.h>
#include <ins/KFileRule.h>
#include <ins/KInstallRuleManager.h>
#include <ins/KSectionRule.h>
#include <sup++/KErrorSource.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>

#include <gmock/gmock.h>

#include <chrono>
#include <cstring>
#include <future>
#include <stdexcept>
#include <type_traits>
#include <typeinfo>

namespace {

using KINS::KInstallRule;
using KINS::KInstallRuleManager;
using KINS::KInstallRuleManagerBase;
using KSUP::KString;
using KSUP::KVariant;
using KTEST::ErrorOf;
using KTEST::PlaceWithoutLine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using namespace std::chrono_literals;

/// A rule that does what a test says, and writes down what is asked of it.
class ScriptedRule : public KInstallRule {
  public:
    ScriptedRule(KInstallRuleManagerBase* owner, const char* name, std::function<void()> work = {})
        : KInstallRule(owner, name),
          body(std::move(work)) {}
    ~ScriptedRule() override { Note("deleted"); }
    ScriptedRule(const ScriptedRule&) = delete;
    ScriptedRule& operator=(const ScriptedRule&) = delete;

    void Execute() override {
        Note("executed");
        if (body) {
            body();
        }
    }
    KString Description() const override {
        Note("described");
        return ruleLine;
    }
    bool ShouldCount() const override {
        Note("asked");
        return counts;
    }
    void ParseRule(const std::vector<KString>&) override {
        Note("parsed");
        if (refusal) {
            refusal();
        }
    }

    std::function<void()> refusal;
    std::vector<std::string>* notes = nullptr;
    bool counts = true;

  private:
    void Note(const char* what) const {
        if (notes != nullptr) {
            notes->push_back(std::string(ruleLine.c_str()) + ' ' + what);
        }
    }
    std::function<void()> body;
};

[[noreturn]] void Refuse() {
    static constexpr KSUP::KErrorSource source("tests");
    source.Raise(48, 7000, "refused");
}

class KInstallRuleManagerBaseTest : public KTEST::RuleTest {
  protected:
    ScriptedRule* AddScripted(const char* name, std::function<void()> work = {}) {
        auto* rule = new ScriptedRule(&manager, name, std::move(work));
        manager.AddRule(rule);
        return rule;
    }
    std::string Status() const { return manager.GetCurrentRuleStatus().c_str(); }
};

TEST_F(KInstallRuleManagerBaseTest, SlotsFollowTheOrderOfTheInterface) {
    using Base = KInstallRuleManagerBase;
    using KTEST::SlotOf;
    EXPECT_EQ(2, SlotOf(&Base::LoadSection));
    EXPECT_EQ(3, SlotOf(&Base::LoadCommandLineRules));
    EXPECT_EQ(
        4, SlotOf(static_cast<void (Base::*)(const KString&, const KString&)>(&Base::AddRule))
    );
    EXPECT_EQ(5, SlotOf(&Base::ExecuteRules));
    EXPECT_EQ(
        6, SlotOf(static_cast<void (Base::*)(const KString&, double)>(&Base::SetCurrentRuleStatus))
    );
    EXPECT_EQ(7, SlotOf(static_cast<void (Base::*)(const KString&)>(&Base::SetCurrentRuleStatus)));
    EXPECT_EQ(8, SlotOf(&Base::GetCurrentRuleStatus));
    EXPECT_EQ(9, SlotOf(&Base::Clear));
    EXPECT_EQ(10, SlotOf(&Base::GetCompletedCount));
    EXPECT_EQ(11, SlotOf(&Base::ExpandMacros));
    EXPECT_EQ(12, SlotOf(&Base::GetRuleCount));
    EXPECT_EQ(13, SlotOf(&Base::SetRuleState));
    EXPECT_EQ(14, SlotOf(&Base::GetRuleState));
    EXPECT_EQ(15, SlotOf(&Base::IsCancelled));
    EXPECT_EQ(16, SlotOf(static_cast<void (Base::*)(KInstallRule*)>(&Base::AddRule)));
    EXPECT_EQ(17, SlotOf(&Base::ParseRuleOrderId));
    EXPECT_EQ(18, SlotOf(&Base::ParseRuleType));
    EXPECT_EQ(KTEST::notVirtual, SlotOf(&Base::SetCallback));
    EXPECT_EQ(KTEST::notVirtual, SlotOf(&Base::GetInstallLog));
}

TEST_F(KInstallRuleManagerBaseTest, HasItsTagAndIsNotCopied) {
    EXPECT_STREQ("KInstallRuleManager", manager.GetClassTag());
    EXPECT_FALSE(std::is_copy_constructible_v<KInstallRuleManager>);
    EXPECT_FALSE(std::is_copy_assignable_v<KInstallRuleManager>);
    EXPECT_TRUE((std::is_base_of_v<KInstallRuleManagerBase, KInstallRuleManager>));
}

TEST_F(KInstallRuleManagerBaseTest, BeginsEmpty) {
    EXPECT_EQ(0U, manager.GetRuleCount());
    EXPECT_EQ(0U, manager.GetCompletedCount());
    EXPECT_EQ("", Status());
    EXPECT_FALSE(manager.IsCancelled());
    EXPECT_EQ(&installer->GetLog(), &manager.GetInstallLog());
}

TEST_F(KInstallRuleManagerBaseTest, WhatIsLeftDiesInTheOrderCallbackRules) {
    std::vector<std::string> order;
    {
        KInstallRuleManager mortal(installer.get());
        const std::shared_ptr<int> life(new int, [&](const int* memory) {
            order.emplace_back("callback");
            delete memory;
        });
        mortal.SetCallback([life](const KString&, double) {});
        for (const char* name : {"first", "second"}) {
            auto* rule = new ScriptedRule(&mortal, name);
            mortal.AddRule(rule);
            rule->notes = &order;
        }
    }
    EXPECT_THAT(order, ElementsAre("callback", "first deleted", "second deleted"));
}

// Adding rules

TEST_F(KInstallRuleManagerBaseTest, AddingInitialisesThenLogs) {
    std::vector<std::string> notes;
    auto* rule = new ScriptedRule(&manager, "mine");
    rule->notes = &notes;
    manager.AddRule(rule);
    EXPECT_THAT(notes, ElementsAre("mine parsed", "mine described"));
    EXPECT_THAT(LogLines(), ElementsAre("KINS::KInstallRuleManager: Adding rule -> mine"));
    EXPECT_EQ(1U, manager.GetRuleCount());
    rule->notes = nullptr;
}

TEST_F(KInstallRuleManagerBaseTest, ARuleThatRefusesIsDeletedAndNotAdded) {
    std::vector<std::string> notes;
    auto* rule = new ScriptedRule(&manager, "mine");
    rule->notes = &notes;
    rule->refusal = Refuse;
    EXPECT_EQ(7000U, ErrorOf([&] { manager.AddRule(rule); }).GetCode());
    EXPECT_THAT(notes, ElementsAre("mine parsed", "mine deleted"));
    EXPECT_EQ(0U, manager.GetRuleCount());
    EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(KInstallRuleManagerBaseTest, AnyExceptionOfARuleDeletesItAndComesOut) {
    std::vector<std::string> notes;
    auto* rule = new ScriptedRule(&manager, "mine");
    rule->notes = &notes;
    rule->refusal = [] { throw std::length_error("mine"); };
    EXPECT_THROW(manager.AddRule(rule), std::length_error);
    EXPECT_EQ("mine deleted", notes.back());
}

struct Keyword {
    const char* name;
    const char* line;
    const char* description;
};

class KeywordTest : public KTEST::RuleTest, public ::testing::WithParamInterface<Keyword> {};

TEST_P(KeywordTest, MakesItsRule) {
    EXPECT_EQ(GetParam().description, DescriptionOf(GetParam().name, GetParam().line));
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
    EXPECT_EQ(0U, manager.GetRuleCount());
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
    EXPECT_STREQ(GetParam().type, manager.ParseRuleType(GetParam().line).c_str());
    EXPECT_EQ(GetParam().order, manager.ParseRuleOrderId(GetParam().line));
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

class LoadSectionTest : public KInstallRuleManagerBaseTest {
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
    EXPECT_EQ(3U, manager.GetRuleCount());
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
    EXPECT_EQ(0U, manager.GetRuleCount());
}

TEST_F(LoadSectionTest, AMissingSectionAddsNothing) {
    Load("[remove]\ndirectory=create,/a\n");
    EXPECT_EQ(0U, manager.GetRuleCount());
    EXPECT_EQ("KINS::KInstallRuleManager: Processing section -> install", LogLines().back());
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
    EXPECT_EQ(7000U, ErrorOf([&] { manager.LoadSection("install"); }).GetCode());
    EXPECT_EQ("KINS::KInstallRuleManager: Unknown rule File copy,a,b,c", LogLines().back());
    EXPECT_EQ(1U, manager.GetRuleCount());
}

TEST_F(LoadSectionTest, AMalformedLineEndsTheLoadUnchanged) {
    GivenScript("[install]\ndirectory=create,/a\ndirectory=create\ndirectory=create,/b\n");
    Initialize();
    const KSUP::KError error = ErrorOf([&] { manager.LoadSection("install"); });
    EXPECT_EQ("48 7000.0 ins/KDirectoryRule:53 ParseRule \"create\"", KTEST::Place(error));
    EXPECT_EQ(1U, manager.GetRuleCount());
}

TEST_F(LoadSectionTest, TheDefaultPathIsPassedOver) {
    Load("[install]\ndirectory=create,/a\ndefaultPath.$os$=/opt/x\ndirectory=create,/b\n");
    EXPECT_THAT(Added(), ElementsAre("Create path /a", "Create path /b"));
}

TEST_F(LoadSectionTest, NoOtherDefaultPathIsPassedOver) {
    GivenScript("[install]\ndefaultPath.lin=/opt/x\n");
    Initialize();
    EXPECT_EQ(7000U, ErrorOf([&] { manager.LoadSection("install"); }).GetCode());
    EXPECT_EQ("KINS::KInstallRuleManager: Unknown rule defaultPath.lin /opt/x", LogLines().back());
}

TEST_F(LoadSectionTest, IncludedRulesStandBeforeTheRuleThatIncludesThem) {
    Load("[install]\ndirectory=create,/1\nsection=common\ndirectory=create,/"
         "2\n[common]\ndirectory=create,/c\n");
    EXPECT_THAT(
        Added(),
        ElementsAre("Create path /1", "Create path /c", "Include section common", "Create path /2")
    );
    EXPECT_EQ(3U, manager.GetRuleCount());
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
    EXPECT_EQ(5U, manager.GetRuleCount());
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
    EXPECT_EQ(0U, manager.GetRuleCount());
}

TEST_F(LoadSectionTest, AnInclusionMayNameItsSectionByAMacro) {
    Load("[install]\nsection=$os$\n[lin]\ndirectory=create,/l\n[$os$]\ndirectory=create,/no\n");
    EXPECT_THAT(Added(), ElementsAre("Create path /l", "Include section lin"));
}

TEST_F(LoadSectionTest, AnErrorInAnIncludedSectionEndsTheOuterOneToo) {
    GivenScript("[install]\ndirectory=create,/1\nsection=c\ndirectory=create,/2\n"
                "[c]\ndirectory=create,/c\nfile=copy\ndirectory=create,/d\n");
    Initialize();
    EXPECT_EQ(7000U, ErrorOf([&] { manager.LoadSection("install"); }).GetCode());
    EXPECT_THAT(Added(), ElementsAre("Create path /1", "Create path /c"));
    EXPECT_EQ(2U, manager.GetRuleCount());
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

class LoadCommandLineRulesTest : public KInstallRuleManagerBaseTest {
  protected:
    LoadCommandLineRulesTest() { KSUP::KUtil::SetPathMap(55, "/p/config/"); }
};

TEST_F(LoadCommandLineRulesTest, WithoutTheOptionNothingIsAddedOrLogged) {
    world.GivenArguments({"--other=x", "--addProfileLines=a", "plain"});
    manager.LoadCommandLineRules();
    EXPECT_EQ(0U, manager.GetRuleCount());
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
        "400 36.0 ins/KInstallRuleManagerBase:? LoadCommandLineRules \"Error parsing command line "
        "string while loading command line installer rules\"",
        PlaceWithoutLine(error)
    );
    EXPECT_THAT(trace.Texts(400), ElementsAre(error.GetSummary().c_str()));
    EXPECT_EQ(0U, manager.GetRuleCount());
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
        "48 7000.0 ins/KProfileRule:57 ParseRule \"put,/p/config/dps.ini,General\"",
        KTEST::Place(error)
    );
    EXPECT_EQ(1U, manager.GetRuleCount());
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
    EXPECT_EQ(2U, manager.GetRuleCount());
}

TEST_F(LoadCommandLineRulesTest, AnyOtherStatusIsTheErrorsCode) {
    KTEST::Injection inject;
    inject.SvcEnumerateStringFromCommandLine =
        [](const char*, const char*, unsigned, unsigned*, char*) { return 4711U; };
    EXPECT_EQ(4711U, ErrorOf([&] { manager.LoadCommandLineRules(); }).GetCode());
}

// Running

TEST_F(KInstallRuleManagerBaseTest, RulesRunInOrderEachCountedOnceItIsDone) {
    std::vector<std::string> order;
    for (const char* name : {"a", "b", "c"}) {
        AddScripted(name, [&, name] {
            order.push_back(name + std::to_string(manager.GetCompletedCount()));
        });
    }
    manager.ExecuteRules();
    EXPECT_THAT(order, ElementsAre("a0", "b1", "c2"));
    EXPECT_EQ(3U, manager.GetCompletedCount());
    EXPECT_THAT(Executed(), ElementsAre("a", "b", "c"));
}

TEST_F(KInstallRuleManagerBaseTest, ARuleIsLoggedThenExecutedThenAskedWhetherItCounts) {
    std::vector<std::string> notes;
    ScriptedRule* rule = AddScripted("r");
    rule->notes = &notes;
    manager.ExecuteRules();
    EXPECT_THAT(notes, ElementsAre("r described", "r executed", "r asked"));
    rule->notes = nullptr;
}

TEST_F(KInstallRuleManagerBaseTest, ARuleIsLoggedBeforeCancellationIsAskedAbout) {
    class Asking : public KInstallRuleManager {
      public:
        Asking(KINS::KInstaller* owner, std::function<void()> question)
            : KInstallRuleManager(owner),
              asked(std::move(question)) {}
        bool IsCancelled() const override {
            asked();
            return false;
        }

      private:
        std::function<void()> asked;
    };
    std::vector<std::size_t> lines;
    Asking asking(installer.get(), [&] { lines.push_back(LogLines().size()); });
    asking.AddRule(new ScriptedRule(&asking, "a"));
    asking.AddRule(new ScriptedRule(&asking, "b"));
    asking.ExecuteRules();
    // Two lines of adding; then asked behind each rule's line, and once behind the last rule.
    EXPECT_THAT(lines, ElementsAre(3U, 4U, 4U));
}

TEST_F(KInstallRuleManagerBaseTest, WhetherARuleCountsIsAskedAfterItsWork) {
    ScriptedRule* rule = nullptr;
    rule = AddScripted("late", [&] { rule->counts = true; });
    rule->counts = false;
    EXPECT_EQ(0U, manager.GetRuleCount());
    manager.ExecuteRules();
    EXPECT_EQ(1U, manager.GetCompletedCount());
}

TEST_F(KInstallRuleManagerBaseTest, ARuleThatDoesNotCountIsRunAndLeftOut) {
    unsigned runs = 0;
    AddScripted("hidden", [&] { ++runs; })->counts = false;
    AddScripted("counted");
    EXPECT_EQ(1U, manager.GetRuleCount());
    manager.ExecuteRules();
    EXPECT_EQ(1U, runs);
    EXPECT_EQ(1U, manager.GetCompletedCount());
}

TEST_F(KInstallRuleManagerBaseTest, SectionRulesAloneCountNothing) {
    GivenScript("[a]\n");
    Initialize();
    manager.AddRule("section", "a");
    manager.AddRule("section", "b");
    EXPECT_EQ(0U, manager.GetRuleCount());
    manager.ExecuteRules();
    EXPECT_EQ(0U, manager.GetCompletedCount());
    EXPECT_THAT(Executed(), ElementsAre("Include section a", "Include section b"));
}

TEST_F(KInstallRuleManagerBaseTest, AnEmptyListEndsAtOnce) {
    manager.ExecuteRules();
    EXPECT_EQ(0U, manager.GetCompletedCount());
    EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(KInstallRuleManagerBaseTest, ARuleAddedByARuleRunsInTheSameRun) {
    AddScripted("first", [&] { AddScripted("added"); });
    AddScripted("second");
    manager.ExecuteRules();
    EXPECT_THAT(Executed(), ElementsAre("first", "second", "added"));
    EXPECT_EQ(3U, manager.GetCompletedCount());
}

TEST_F(KInstallRuleManagerBaseTest, AFailingRuleEndsTheRunUncountedWithItsOwnError) {
    unsigned later = 0;
    AddScripted("good");
    AddScripted("bad", Refuse);
    AddScripted("later", [&] { ++later; });
    const KSUP::KError error = ErrorOf([&] { manager.ExecuteRules(); });
    EXPECT_THAT(PlaceWithoutLine(error), ::testing::StartsWith("48 7000.0 tests:?"));
    EXPECT_EQ(1U, manager.GetCompletedCount());
    EXPECT_EQ(3U, manager.GetRuleCount());
    EXPECT_EQ(0U, later);
    EXPECT_THAT(Executed(), ElementsAre("good", "bad"));
}

TEST_F(KInstallRuleManagerBaseTest, ARuleMayThrowWhatItLikes) {
    AddScripted("bad", [] { throw std::out_of_range("mine"); });
    EXPECT_THROW(manager.ExecuteRules(), std::out_of_range);
    EXPECT_EQ(0U, manager.GetCompletedCount());
}

TEST_F(KInstallRuleManagerBaseTest, ExecuteRulesSetsNoStatusOfItsOwn) {
    manager.SetCurrentRuleStatus("before");
    AddScripted("quiet");
    manager.ExecuteRules();
    EXPECT_EQ("before", Status());
    EXPECT_THAT(statuses.Lines(), ElementsAre("- before"));
}

// Cancelling

TEST_F(KInstallRuleManagerBaseTest, AStopInTheThirdOfFiveRulesEndsTheRunBeforeTheFourth) {
    AddScripted("1");
    AddScripted("2");
    AddScripted("3", [&] { installer->Stop(); });
    AddScripted("4");
    AddScripted("5");
    const KSUP::KError error = ErrorOf([&] { manager.ExecuteRules(); });
    EXPECT_EQ("48 66.0 ins/KInstallRuleManagerBase:? ExecuteRules", PlaceWithoutLine(error));
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
    EXPECT_THAT(Executed(), ElementsAre("1", "2", "3", "4"));
    EXPECT_EQ(3U, manager.GetCompletedCount());
}

TEST_F(KInstallRuleManagerBaseTest, AStopInTheLastRuleIsNoticedBehindIt) {
    AddScripted("last", [&] { installer->Stop(); });
    EXPECT_EQ(66U, ErrorOf([&] { manager.ExecuteRules(); }).GetCode());
    EXPECT_EQ(1U, manager.GetCompletedCount());
}

TEST_F(KInstallRuleManagerBaseTest, AStopBeforeTheRunLogsTheFirstRuleAndRunsNone) {
    unsigned runs = 0;
    AddScripted("first", [&] { ++runs; });
    installer->Stop();
    EXPECT_TRUE(manager.IsCancelled());
    EXPECT_EQ(66U, ErrorOf([&] { manager.ExecuteRules(); }).GetCode());
    EXPECT_EQ(0U, runs);
    EXPECT_THAT(Executed(), ElementsAre("first"));
}

TEST_F(KInstallRuleManagerBaseTest, AStopBeforeTheRunOfAnEmptyListIsError66) {
    installer->Stop();
    EXPECT_EQ(66U, ErrorOf([&] { manager.ExecuteRules(); }).GetCode());
    EXPECT_THAT(LogLines(), IsEmpty());
}

// Status

struct StoredStatus {
    const char* name;
    double value;
    const char* stored;
};

class StoredStatusTest : public KTEST::RuleTest,
                         public ::testing::WithParamInterface<StoredStatus> {};

TEST_P(StoredStatusTest, CarriesTheValueRaisedToAWholeNumber) {
    manager.SetCurrentRuleStatus("x", GetParam().value);
    EXPECT_STREQ(GetParam().stored, manager.GetCurrentRuleStatus().c_str());
    EXPECT_THAT(statuses.All(), ElementsAre(KTEST::StatusRecorder::Status{"x", GetParam().value}));
}

INSTANTIATE_TEST_SUITE_P(
    With,
    StoredStatusTest,
    ::testing::Values(
        StoredStatus{"Nothing", 0.0, "x (0%)"},
        StoredStatus{"AlmostNothing", 0.001, "x (1%)"},
        StoredStatus{"AFraction", 42.1, "x (43%)"},
        StoredStatus{"AWholeNumber", 42.0, "x (42%)"},
        StoredStatus{"AlmostAll", 99.01, "x (100%)"},
        StoredStatus{"All", 100.0, "x (100%)"},
        StoredStatus{"NoPercentage", 4294967295.0, "x"}
    ),
    KTEST::NameOfRow()
);

TEST_F(KInstallRuleManagerBaseTest, AStatusWithoutAValueHasNoPercentage) {
    manager.SetCurrentRuleStatus("x");
    EXPECT_EQ("x", Status());
    EXPECT_THAT(statuses.All(), ElementsAre(KTEST::StatusRecorder::Status{"x", 4294967295.0}));
}

TEST_F(KInstallRuleManagerBaseTest, AStatusWithoutAValueGoesThroughTheOtherForm) {
    class Own : public KInstallRuleManager {
      public:
        using KInstallRuleManager::KInstallRuleManager;
        using KInstallRuleManager::SetCurrentRuleStatus;
        void SetCurrentRuleStatus(const KString& text, double value) override {
            seen = text.c_str();
            seenValue = value;
        }
        std::string seen;
        double seenValue = 0.0;
    };
    Own own(installer.get());
    own.SetCurrentRuleStatus("x");
    EXPECT_EQ("x", own.seen);
    EXPECT_EQ(KINS::noPercentage, own.seenValue);
}

TEST_F(KInstallRuleManagerBaseTest, TheCallbackRunsBeforeTheStatusChanges) {
    std::vector<std::string> seen;
    manager.SetCallback([&](const KString&, double) { seen.push_back(Status()); });
    manager.SetCurrentRuleStatus("first", 1.0);
    manager.SetCurrentRuleStatus("second");
    EXPECT_THAT(seen, ElementsAre("", "first (1%)"));
    EXPECT_EQ("second", Status());
}

TEST_F(KInstallRuleManagerBaseTest, ACallbackThatThrowsLeavesTheStatus) {
    manager.SetCurrentRuleStatus("before");
    manager.SetCallback([](const KString&, double) { throw std::runtime_error("callback"); });
    EXPECT_THROW(manager.SetCurrentRuleStatus("after", 1.0), std::runtime_error);
    EXPECT_EQ("before", Status());
}

TEST_F(KInstallRuleManagerBaseTest, WithoutACallbackTheStatusIsStoredAllTheSame) {
    manager.SetCallback({});
    manager.SetCurrentRuleStatus("x", 5.0);
    EXPECT_EQ("x (5%)", Status());
}

// Rule states

class FirstKindOfRule : public ScriptedRule {
    using ScriptedRule::ScriptedRule;
};

TEST_F(KInstallRuleManagerBaseTest, AStateIsSharedByTheRulesOfOneClass) {
    const KINS::KFileRule one(&manager, "a");
    const KINS::KFileRule other(&manager, "b");
    manager.SetRuleState(&one, "kept");
    EXPECT_STREQ("kept", manager.GetRuleState(&other).GetString().c_str());
    EXPECT_EQ(4U, manager.GetRuleState(&other).GetType());
}

TEST_F(KInstallRuleManagerBaseTest, TheClassIsTheMostDerivedOne) {
    const ScriptedRule base(&manager, "a");
    const FirstKindOfRule derived(&manager, "b");
    manager.SetRuleState(&base, "base");
    EXPECT_EQ(64U, ErrorOf([&] { manager.GetRuleState(&derived); }).GetCode());
    manager.SetRuleState(&derived, "derived");
    EXPECT_STREQ("base", manager.GetRuleState(&base).GetString().c_str());
    EXPECT_STREQ("derived", manager.GetRuleState(&derived).GetString().c_str());
}

TEST_F(KInstallRuleManagerBaseTest, AStateNeverSetIsError64) {
    const KINS::KDirectoryRule rule(&manager, "a");
    manager.SetRuleState(std::make_unique<KINS::KFileRule>(&manager, "a").get(), "of files");
    const KSUP::KError error = ErrorOf([&] { manager.GetRuleState(&rule); });
    EXPECT_THAT(
        PlaceWithoutLine(error),
        ::testing::StartsWith("48 64.0 ins/KInstallRuleManagerBase:? GetRuleState")
    );
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
}

TEST_F(KInstallRuleManagerBaseTest, AStateIsReplacedWithItsType) {
    const KINS::KFileRule rule(&manager, "a");
    manager.SetRuleState(&rule, "first");
    manager.SetRuleState(&rule, KVariant());
    EXPECT_EQ(0U, manager.GetRuleState(&rule).GetType());
    EXPECT_EQ(0U, manager.GetRuleState(&rule).GetSize());
}

TEST_F(KInstallRuleManagerBaseTest, AStateSetToItselfStays) {
    const KINS::KFileRule rule(&manager, "a");
    manager.SetRuleState(&rule, "kept");
    manager.SetRuleState(&rule, manager.GetRuleState(&rule));
    EXPECT_STREQ("kept", manager.GetRuleState(&rule).GetString().c_str());
}

TEST_F(KInstallRuleManagerBaseTest, AStateChangesInPlace) {
    const KINS::KFileRule rule(&manager, "a");
    manager.SetRuleState(&rule, "first");
    KVariant& state = manager.GetRuleState(&rule);
    manager.SetRuleState(&rule, "second");
    EXPECT_STREQ("second", state.GetString().c_str());
    state = "third";
    EXPECT_STREQ("third", manager.GetRuleState(&rule).GetString().c_str());
}

TEST_F(KInstallRuleManagerBaseTest, ANullRuleHasNoType) {
    EXPECT_THROW(manager.GetRuleState(nullptr), std::bad_typeid);
    EXPECT_THROW(manager.SetRuleState(nullptr, "x"), std::bad_typeid);
}

// Clearing

TEST_F(KInstallRuleManagerBaseTest, ClearDeletesTheRulesAndTheCountAndKeepsTheRest) {
    std::vector<std::string> notes;
    for (const char* name : {"a", "b"}) {
        AddScripted(name)->notes = &notes;
    }
    const KINS::KFileRule rule(&manager, "a");
    manager.SetRuleState(&rule, "kept");
    manager.SetCurrentRuleStatus("status");
    manager.ExecuteRules();
    notes.clear();
    manager.Clear();
    EXPECT_THAT(notes, ElementsAre("a deleted", "b deleted"));
    EXPECT_EQ(0U, manager.GetRuleCount());
    EXPECT_EQ(0U, manager.GetCompletedCount());
    EXPECT_EQ("status", Status());
    EXPECT_STREQ("kept", manager.GetRuleState(&rule).GetString().c_str());
    manager.SetCurrentRuleStatus("still called");
    EXPECT_EQ("- still called", statuses.Lines().back());
}

// The lock

TEST_F(KInstallRuleManagerBaseTest, TheLockIsFreeWhileARuleWorks) {
    bool answered = false;
    AddScripted("slow", [&] {
        auto answer = std::async(std::launch::async, [&] { return manager.GetCompletedCount(); });
        answered = answer.wait_for(20s) == std::future_status::ready;
    });
    manager.ExecuteRules();
    EXPECT_TRUE(answered);
}

TEST_F(KInstallRuleManagerBaseTest, TheLockIsFreeWhileARuleWorksHoweverOftenItWasHeld) {
    bool answered = false;
    AddScripted("slow", [&] {
        auto answer = std::async(std::launch::async, [&] { return manager.GetRuleCount(); });
        answered = answer.wait_for(20s) == std::future_status::ready;
    });
    // A callback runs under the lock: the run inside it begins with the lock held twice.
    manager.SetCallback([&](const KString& text, double) {
        if (text == "run") {
            manager.SetCurrentRuleStatus("deeper");
        } else {
            manager.ExecuteRules();
        }
    });
    manager.SetCurrentRuleStatus("run");
    EXPECT_TRUE(answered);
    EXPECT_EQ(1U, manager.GetCompletedCount());
}

TEST_F(KInstallRuleManagerBaseTest, TheLockIsFreeAfterEveryEndOfARun) {
    AddScripted("bad", [] { throw std::runtime_error("mine"); });
    EXPECT_THROW(manager.ExecuteRules(), std::runtime_error);
    manager.SetCallback([](const KString&, double) { throw std::runtime_error("callback"); });
    EXPECT_THROW(manager.SetCurrentRuleStatus("x"), std::runtime_error);
    installer->Stop();
    EXPECT_EQ(66U, ErrorOf([&] { manager.ExecuteRules(); }).GetCode());
    auto answer = std::async(std::launch::async, [&] { return manager.GetCompletedCount(); });
    ASSERT_EQ(std::future_status::ready, answer.wait_for(20s));
    EXPECT_EQ(0U, answer.get());
}

TEST_F(KInstallRuleManagerBaseTest, TheLockIsHeldDuringTheCallback) {
    std::future<unsigned> answer;
    bool waited = false;
    manager.SetCallback([&](const KString&, double) {
        answer = std::async(std::launch::async, [&] { return manager.GetRuleCount(); });
        waited = answer.wait_for(100ms) == std::future_status::timeout;
    });
    manager.SetCurrentRuleStatus("x");
    EXPECT_TRUE(waited);
    EXPECT_EQ(std::future_status::ready, answer.wait_for(20s));
}

TEST_F(KInstallRuleManagerBaseTest, WhatTakesNoLockAnswersDuringTheCallback) {
    bool answered = false;
    manager.SetCallback([&](const KString&, double) {
        auto answer = std::async(std::launch::async, [&] {
            manager.IsCancelled();
            manager.ExpandMacros("$os$");
            manager.GetInstallLog();
        });
        answered = answer.wait_for(20s) == std::future_status::ready;
    });
    manager.SetCurrentRuleStatus("x");
    EXPECT_TRUE(answered);
}

TEST_F(KInstallRuleManagerBaseTest, TheCallbackMayAskTheManager) {
    AddScripted("a", [&] { manager.SetCurrentRuleStatus("working"); });
    std::string seen;
    manager.SetCallback([&](const KString&, double) {
        seen = std::to_string(manager.GetCompletedCount()) + " of " +
               std::to_string(manager.GetRuleCount()) + " '" + Status() + '\'';
    });
    manager.ExecuteRules();
    EXPECT_EQ("0 of 1 ''", seen);
}

} // namespace
