// SPDX-License-Identifier: MIT
#include "../../support/EngineRig.h"
#include "../../support/NameOfRow.h"
#include "../../support/SlotOf.h"
#include "Injected.h"

#include <ins/unx/lin/KInstallPathManager.h>
#include <sup++/KErrorSource.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>

#include <gmock/gmock.h>

#include <atomic>
#include <map>
#include <thread>
#include <type_traits>

namespace {

using KINS::KInstallPathManager;
using KINS::KInstallPathManagerBase;
using KSUP::KString;
using KSUP::KUtil;

std::map<unsigned, std::string> PathTable() {
    std::map<unsigned, std::string> table;
    for (unsigned id = 39; id <= 60; ++id) {
        table[id] = KUtil::GetPathMap(id).c_str();
    }
    return table;
}

class KInstallPathManagerBaseTest : public KTEST::EngineTest {
  protected:
    KInstallPathManagerBaseTest() { KUtil::SetPathMap(2, "/src"); }
    std::string Expanded(const char* text) const { return manager.ExpandMacros(text).c_str(); }

    KInstallPathManager manager{installer.get()};
};

TEST_F(KInstallPathManagerBaseTest, SlotsFollowTheOrderOfTheInterface) {
    using KTEST::SlotOf;
    EXPECT_EQ(SlotOf(&KInstallPathManagerBase::Initialize), 2);
    EXPECT_EQ(SlotOf(&KInstallPathManagerBase::ExpandMacros), 3);
    EXPECT_EQ(SlotOf(&KInstallPathManagerBase::GetInstalledProductInformation), 4);
    EXPECT_EQ(SlotOf(&KInstallPathManagerBase::PutInstalledProductInformation), 5);
    EXPECT_EQ(SlotOf(&KInstallPathManagerBase::GetDefaultProductPath), 6);
}

TEST_F(KInstallPathManagerBaseTest, HasItsTagAndIsNotCopied) {
    EXPECT_STREQ(manager.GetClassTag(), "KInstallPathManager");
    EXPECT_FALSE(std::is_copy_constructible_v<KInstallPathManager>);
    EXPECT_FALSE(std::is_copy_assignable_v<KInstallPathManager>);
    EXPECT_TRUE(std::is_abstract_v<KInstallPathManagerBase>);
}

/// The whole table for a product in /opt/p with the source root /src, on a "lin" system.
std::map<unsigned, std::string> ExpectedTable() {
    const std::string architecture = SvcGetGlobalDataEx()->architecture;
    return {
        {39, "/src/win/x86/"},
        {40, "/src/win/x86_64/"},
        {41, "/opt/p/win/x86_64/"},
        {42, "/opt/p/win/"},
        {43, "/opt/p/win/x86/"},
        {44, "/opt/p/lin"},
        {45, "/opt/p/lin/x86_64/"},
        {46, "/opt/p/lin/x86/"},
        {47, "/opt/p/mac"},
        {48, "/opt/p/mac/x86_64/"},
        {49, "/opt/p/mac/x86/"},
        {50, "/src/lin/x86/"},
        {51, "/src/lin/x86_64/"},
        {52, "/opt/p/lin/x86_64/"},
        {53, "/opt/p/lin/x86/"},
        {54, "/opt/p/lin/" + architecture + "/"},
        {55, "/opt/p/config/"},
        {56, "/opt/p/resource/"},
        {57, "/opt/p/"},
        {58, "/opt/p/database/"},
        {59, "/opt/p/log/"},
        {60, "/opt/p/temp/"},
    };
}

TEST_F(KInstallPathManagerBaseTest, InitializeSetsAll22Entries) {
    manager.Initialize("/opt/p");
    EXPECT_EQ(PathTable(), ExpectedTable());
    EXPECT_STREQ(KUtil::GetPathMap(2).c_str(), "/src");
}

TEST_F(KInstallPathManagerBaseTest, TheEntriesAreSetInTheAgreedOrder) {
    std::vector<unsigned> order;
    KTEST::Injection inject;
    inject.BeforeSetPathMap = [&](unsigned id, const KString&) { order.push_back(id); };
    manager.Initialize("/opt/p");
    EXPECT_EQ(
        (std::vector<unsigned>{39, 40, 42, 43, 41, 44, 46, 45, 47, 49, 48,
                               50, 51, 53, 52, 54, 55, 60, 58, 59, 56, 57}),
        order
    );
}

TEST_F(KInstallPathManagerBaseTest, AnErrorLeavesTheEntriesBeforeItNewAndThoseBehindItOld) {
    manager.Initialize("/opt/old");
    KTEST::Injection inject;
    inject.BeforeSetPathMap = [](unsigned id, const KString&) {
        static constexpr KSUP::KErrorSource source("tests");
        if (id == 55) {
            source.Raise(24, 36);
        }
    };
    EXPECT_THROW(manager.Initialize("/opt/new"), KSUP::KError);
    EXPECT_STREQ(KUtil::GetPathMap(42).c_str(), "/opt/new/win/");
    EXPECT_STREQ(KUtil::GetPathMap(55).c_str(), "/opt/old/config/");
    EXPECT_STREQ(KUtil::GetPathMap(57).c_str(), "/opt/old/");
}

TEST_F(KInstallPathManagerBaseTest, ASeparatorAtTheEndOfThePathIsNotDoubled) {
    manager.Initialize("/opt/p/");
    EXPECT_EQ(PathTable(), ExpectedTable());
}

TEST_F(KInstallPathManagerBaseTest, ASeparatorAtTheEndOfTheSourceRootIsNotDoubled) {
    KUtil::SetPathMap(2, "/src/");
    manager.Initialize("/opt/p");
    EXPECT_EQ(PathTable(), ExpectedTable());
}

TEST_F(KInstallPathManagerBaseTest, ASecondInitializeLeavesOnlyItsOwnValues) {
    manager.Initialize("/elsewhere/q");
    manager.Initialize("/opt/p");
    EXPECT_EQ(PathTable(), ExpectedTable());
}

TEST_F(KInstallPathManagerBaseTest, TheTableOutlivesTheManagerAndTheNextOneReplacesIt) {
    {
        KInstallPathManager first(installer.get());
        first.Initialize("/opt/p");
    }
    EXPECT_EQ(PathTable(), ExpectedTable());
    manager.Initialize("/opt/q");
    EXPECT_STREQ(KUtil::GetPathMap(57).c_str(), "/opt/q/");
}

TEST_F(KInstallPathManagerBaseTest, TheRunningPlatformsEntryIsTheOneOfItsArchitecture) {
    manager.Initialize("/opt/p");
    const std::string architecture = SvcGetGlobalDataEx()->architecture;
    ASSERT_TRUE(architecture == "x86_64" || architecture == "x86") << architecture;
    EXPECT_EQ(KUtil::GetPathMap(architecture == "x86_64" ? 45 : 46), KUtil::GetPathMap(54));
}

struct NamedEntry {
    const char* name;
    unsigned id;
};

class PathMacroTest : public KInstallPathManagerBaseTest,
                      public ::testing::WithParamInterface<NamedEntry> {};

TEST_P(PathMacroTest, NamesItsEntry) {
    manager.Initialize("/opt/p");
    const std::string text = std::string("$") + GetParam().name + "$";
    EXPECT_STREQ(KUtil::GetPathMap(GetParam().id).c_str(), Expanded(text.c_str()).c_str());
    EXPECT_NE(text, Expanded(text.c_str()));
}

INSTANTIATE_TEST_SUITE_P(
    Macro,
    PathMacroTest,
    ::testing::Values(
        NamedEntry{"pathSource", 2},
        NamedEntry{"pathLog", 19},
        NamedEntry{"pathSourceWinX86", 39},
        NamedEntry{"pathSourceWinX86_64", 40},
        NamedEntry{"pathTargetWinX86_64", 41},
        NamedEntry{"pathTargetWin", 42},
        NamedEntry{"pathTargetWinX86", 43},
        NamedEntry{"pathTargetLin", 44},
        NamedEntry{"pathTargetLinX86_64", 45},
        NamedEntry{"pathTargetLinX86", 46},
        NamedEntry{"pathTargetMac", 47},
        NamedEntry{"pathTargetMacX86_64", 48},
        NamedEntry{"pathTargetMacX86", 49},
        NamedEntry{"pathSourceBinX86", 50},
        NamedEntry{"pathSourceBinX86_64", 51},
        NamedEntry{"pathTargetBinX86_64", 52},
        NamedEntry{"pathTargetBinX86", 53},
        NamedEntry{"pathTargetBin", 54},
        NamedEntry{"pathTargetConfig", 55},
        NamedEntry{"pathTargetResource", 56},
        NamedEntry{"pathTarget", 57},
        NamedEntry{"pathTargetDatabase", 58},
        NamedEntry{"pathTargetLog", 59},
        NamedEntry{"pathTargetTemp", 60}
    ),
    KTEST::NameOfRow()
);

struct Expansion {
    const char* name;
    const char* text;
    const char* expanded;
};

class ExpansionTest : public KInstallPathManagerBaseTest,
                      public ::testing::WithParamInterface<Expansion> {};

TEST_P(ExpansionTest, GivesTheText) {
    manager.Initialize("/opt/p");
    world.GivenKey("expandEmpty", "");
    world.GivenKey("expandNested", "$os$");
    EXPECT_EQ(Expanded(GetParam().text), GetParam().expanded);
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    ExpansionTest,
    ::testing::Values(
        Expansion{"ATextWithoutMacros", "plain / text", "plain / text"},
        Expansion{"AnEmptyText", "", ""},
        Expansion{"TwoMacrosThatTouch", "$pathTargetConfig$$iniFile$", "/opt/p/config/dps.ini"},
        Expansion{
            "TheServiceLink",
            "/etc/$serviceName$/$serviceName$",
            "/etc/inspp-unit-test/inspp-unit-test"},
        Expansion{"TheLogName", "$product$ Setup Log.txt", "DPS Setup Log.txt"},
        Expansion{"TheVersion", "$verInfo$", "0.0.0"},
        Expansion{"TheSystem", "$os$", "lin"},
        Expansion{"AnUnknownMacro", "$noSuchMacro$", "$noSuchMacro$"},
        Expansion{"AnUnknownMacroWhoseSecondDollarBeginsAKnownOne", "$x$os$", "$xlin"},
        Expansion{"ALoneDollar", "5 $ and $os", "5 $ and $os"},
        Expansion{"TwoDollars", "$$", "$$"},
        Expansion{"AnEmptyValue", "[$expandEmpty$]", "[]"},
        Expansion{"AMacroInAValueIsLeft", "$expandNested$", "$os$"},
        Expansion{"NamesMatchInCase", "$OS$", "$OS$"}
    ),
    KTEST::NameOfRow()
);

TEST_F(KInstallPathManagerBaseTest, ExpansionLeavesItsArgument) {
    const KString text("$os$");
    EXPECT_STREQ(manager.ExpandMacros(text).c_str(), "lin");
    EXPECT_STREQ(text.c_str(), "$os$");
}

TEST_F(KInstallPathManagerBaseTest, ThreadsThatExpandAtOnceGetWholeResults) {
    manager.Initialize("/opt/p");
    std::atomic<unsigned> wrong{0};
    const auto expand = [&] {
        for (int round = 0; round < 2000; ++round) {
            wrong += Expanded("$pathTargetConfig$$iniFile$[$binext$]") == "/opt/p/config/dps.ini[]"
                         ? 0U
                         : 1U;
        }
    };
    std::thread other(expand);
    expand();
    other.join();
    EXPECT_EQ(wrong, 0U);
}

TEST_F(KInstallPathManagerBaseTest, TheInstallerExpandsThroughItsPathManager) {
    EXPECT_STREQ(installer->ExpandMacros("$product$ Setup Log.txt").c_str(), "DPS Setup Log.txt");
}

} // namespace
