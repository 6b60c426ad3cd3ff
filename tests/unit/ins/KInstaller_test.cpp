// SPDX-License-Identifier: MIT
//
// Above 500 lines: the life of an installer from its making to its end, in order.
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/NameOfRow.h"
#include "../../support/SlotOf.h"
#include "Injected.h"

#include <sup++/KUtil.h>
#include <sup++/SvcMessage.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <type_traits>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using KINS::KInstaller;
using KSUP::KString;
using KTEST::ErrorOf;
using KTEST::PlaceWithoutLine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A script of both sections whose rules touch nothing outside the tree.
constexpr const char* twoSections = "[install]\ndirectory=create,@T@/installed\n"
                                    "[remove]\ndirectory=create,@T@/removed\n";

class KInstallerTest : public KTEST::EngineTest {
  protected:
    std::string InstallPath() const { return tree.Path("p"); }
    /// Starts a removal, which writes no record, and waits for its end.
    void RunRemoval() {
        installer->StartUninstall(InstallPath());
        WaitForEnd();
    }
    std::vector<std::string> Sections() const {
        std::vector<std::string> names;
        for (const std::string& line : LogLines()) {
            const std::string start = "KINS::KInstallRuleManager: Processing section -> ";
            if (line.starts_with(start)) {
                names.push_back(line.substr(start.size()));
            }
        }
        return names;
    }
};

TEST_F(KInstallerTest, OnlyTheDestructorIsVirtual) {
    using KTEST::notVirtual;
    using KTEST::SlotOf;
    EXPECT_TRUE(std::has_virtual_destructor_v<KInstaller>);
    EXPECT_EQ(SlotOf(&KInstaller::SetCallback), notVirtual);
    EXPECT_EQ(SlotOf(&KInstaller::Initialize), notVirtual);
    EXPECT_EQ(SlotOf(&KInstaller::Start), notVirtual);
    EXPECT_EQ(SlotOf(&KInstaller::StartInstall), notVirtual);
    EXPECT_EQ(SlotOf(&KInstaller::StartUninstall), notVirtual);
    EXPECT_EQ(SlotOf(&KInstaller::AutoInstall), notVirtual);
    EXPECT_EQ(SlotOf(&KInstaller::AutoUninstall), notVirtual);
    EXPECT_EQ(SlotOf(&KInstaller::GetStatus), notVirtual);
    EXPECT_EQ(SlotOf(&KInstaller::IsComplete), notVirtual);
    EXPECT_EQ(SlotOf(&KInstaller::Stop), notVirtual);
    EXPECT_EQ(SlotOf(&KInstaller::InstallThread), notVirtual);
}

TEST_F(KInstallerTest, HasItsTagAndIsNotCopied) {
    EXPECT_STREQ(installer->GetClassTag(), "KInstaller");
    EXPECT_FALSE(std::is_copy_constructible_v<KInstaller>);
    EXPECT_FALSE(std::is_copy_assignable_v<KInstaller>);
}

TEST_F(KInstallerTest, ModesHaveTheirNumbers) {
    EXPECT_EQ(KINS::ModeNone, 0U);
    EXPECT_EQ(KINS::ModeInstall, 1U);
    EXPECT_EQ(KINS::ModeUpgrade, 2U);
    EXPECT_EQ(KINS::ModeUninstall, 3U);
    EXPECT_EQ(KINS::ModeInstall4, 4U);
    EXPECT_EQ(KINS::ModeInstall5, 5U);
    EXPECT_EQ(sizeof(KINS::MODE), 4U);
}

TEST_F(KInstallerTest, ANewInstallerHasDoneNothing) {
    EXPECT_EQ(installer->GetMode(), KINS::ModeNone);
    EXPECT_STREQ(installer->GetStatus().c_str(), "");
    EXPECT_EQ(installer->GetMaxCount(), 0U);
    EXPECT_EQ(installer->GetCompletedCount(), 0U);
    EXPECT_FALSE(installer->IsCancelled());
    EXPECT_TRUE(installer->IsComplete());
    EXPECT_FALSE(installer->GetInstallProfile().HasContent());
    EXPECT_THAT(tree.List("log"), IsEmpty());
}

// Messages

TEST_F(KInstallerTest, TheMessagesAreCatalogue44) {
    KTEST::Injection inject;
    std::vector<std::string> asked;
    inject.SvcLoadMessage = [&](unsigned catalogue, const char* name) {
        asked.push_back("load " + std::to_string(catalogue) + ' ' + name);
        return 17U;
    };
    inject.SvcUnloadMessage = [&](unsigned catalogue) {
        asked.push_back("unload " + std::to_string(catalogue));
        return 0U;
    };
    EXPECT_EQ(PrvInsLoadMessage(), 17U);
    PrvInsUnloadMessage();
    EXPECT_THAT(asked, ElementsAre("load 44 xxxins", "unload 44"));
}

TEST_F(KInstallerTest, EveryMessageHasAText) {
    ASSERT_EQ(PrvInsLoadMessage(), 0U);
    for (unsigned id = 0x2C0001; id <= 0x2C0004; ++id) {
        EXPECT_STRNE(SvcGetMessagePtr(id), "") << id;
    }
    PrvInsUnloadMessage();
}

// Initialising

TEST_F(KInstallerTest, InitializeOpensTheLogAndTheScript) {
    GivenScript(twoSections);
    Initialize();
    EXPECT_THAT(
        LogLines(),
        ElementsAre("KINS::KInstaller: Loading install script " + tree.Path("install.ini"))
    );
    EXPECT_EQ(tree.Mode("log/DPS Setup Log.txt"), 0640U);
    EXPECT_TRUE(installer->GetInstallProfile().HasContent());
    EXPECT_EQ(LogPath(), installer->GetLog().GetPath().c_str());
}

TEST_F(KInstallerTest, InitializeOfAMissingScriptLogsTheProfilesErrorAndThrowsIt) {
    const std::string path = tree.Path("install.ini");
    const KSUP::KError error = ErrorOf([&] { Initialize(); });
    EXPECT_EQ(error.GetCode(), static_cast<unsigned>(ENOENT));
    EXPECT_STREQ(error.GetFile(), "sup++/KProfile");
    EXPECT_THAT(error.GetInfo().GetString().c_str(), ::testing::HasSubstr(path));
    EXPECT_THAT(
        LogLines(),
        ElementsAre(
            "KINS::KInstaller: Loading install script " + path,
            "KINS::KInstaller: Failed to open install script " + path + ' ' +
                error.GetSummary().c_str()
        )
    );
    EXPECT_THAT(trace.Texts(400), IsEmpty());
}

TEST_F(KInstallerTest, InitializeWithMessagesThatFailIsTheirStatusAndTouchesNoLog) {
    KTEST::Injection inject;
    inject.SvcLoadMessage = [](unsigned, const char*) { return 17U; };
    GivenScript(twoSections);
    const KSUP::KError error = ErrorOf([&] { Initialize(); });
    EXPECT_THAT(
        PlaceWithoutLine(error), ::testing::StartsWith("400 17.0 ins/KInstaller:? Initialize")
    );
    EXPECT_THAT(trace.Texts(400), ElementsAre(error.GetSummary().c_str()));
    EXPECT_THAT(tree.List("log"), IsEmpty());
}

TEST_F(KInstallerTest, InitializeWithoutALogDirectoryIsTheLogsError) {
    tree.Remove("log");
    GivenScript(twoSections);
    const KSUP::KError error = ErrorOf([&] { Initialize(); });
    EXPECT_EQ(error.GetCode(), static_cast<unsigned>(ENOENT));
    EXPECT_THAT(error.GetInfo().GetString().c_str(), ::testing::HasSubstr(LogPath()));
}

/// What Initialize throws to a user other than root, in a process of its own.
std::string RefusalWithoutRoot(KInstaller& installer, const KString& script) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t child = ::fork();
    if (child == 0) {
        std::string answer = "nothing was thrown";
        if (::seteuid(65534) != 0) {
            answer = "this test must be run as root";
        } else {
            try {
                installer.Initialize(script);
            } catch (const KSUP::KError& error) {
                answer = PlaceWithoutLine(error);
            }
        }
        const bool told = ::write(ends[1], answer.data(), answer.size()) >= 0;
        ::_exit(told ? 0 : 1);
    }
    ::close(ends[1]);
    std::array<char, 512> buffer{};
    const ssize_t size = ::read(ends[0], buffer.data(), buffer.size());
    ::close(ends[0]);
    int status = -1;
    ::waitpid(child, &status, 0);
    return {buffer.data(), static_cast<std::size_t>(size < 0 ? 0 : size)};
}

TEST_F(KInstallerTest, InitializeByAnotherUserThanRootIsError99BeforeAnythingIsTouched) {
    tree.SetMode("", 0777);
    tree.SetMode("log", 0777);
    EXPECT_THAT(
        RefusalWithoutRoot(*installer, tree.Path("no such script")),
        ::testing::StartsWith("400 99.0 ins/KInstaller:? Initialize")
    );
    EXPECT_THAT(tree.List("log"), IsEmpty());
}

TEST_F(KInstallerTest, WithoutARecordNoProductIsInstalled) {
    GivenScript(twoSections);
    Initialize();
    EXPECT_FALSE(installer->IsProductInstalled());
    EXPECT_EQ(ErrorOf([&] { installer->GetInstalledProductPath(); }).GetCode(), 64U);
    KString path;
    KString version;
    unsigned buildNumber = 0;
    EXPECT_EQ(
        ErrorOf([&] { installer->GetInstalledProductInformation(path, version, buildNumber); }
        ).GetCode(),
        64U
    );
}

TEST_F(KInstallerTest, TheDefaultProductPathIsExpanded) {
    GivenScript("[install]\ndefaultPath.$os$=/opt/$product$/$os$\n");
    Initialize();
    EXPECT_STREQ(installer->GetDefaultProductPath().c_str(), "/opt/DPS/lin");
}

TEST_F(KInstallerTest, TheScriptIsHandedOutWithAnEnumerationOfItsOwn) {
    GivenScript("[install]\na=1\nb=2\n");
    Initialize();
    const KSUP::KProfile one = installer->GetInstallProfile();
    const KSUP::KProfile other = installer->GetInstallProfile();
    one.BeginKeyEnum("install", nullptr);
    other.BeginKeyEnum("install", nullptr);
    ASSERT_TRUE(one.EnumKey(nullptr, false));
    ASSERT_TRUE(one.EnumKey(nullptr, false));
    ASSERT_TRUE(other.EnumKey(nullptr, false));
    EXPECT_STREQ(one.GetKeyName().c_str(), "b");
    EXPECT_STREQ(other.GetKeyName().c_str(), "a");
}

// Starting

struct StartedMode {
    const char* name;
    unsigned mode;
    const char* section;
    std::vector<std::string> added; ///< with an option of the command line given
    const char* made;
    unsigned code; ///< of the run's end; 64 is a record that has no link to find it by
};

class StartedModeTest : public KInstallerTest, public ::testing::WithParamInterface<StartedMode> {
  protected:
    /// The code with which the run ends, 0 for a clean end.
    unsigned EndOfRun() {
        installer->Start(InstallPath(), static_cast<KINS::MODE>(GetParam().mode));
        try {
            WaitForEnd();
        } catch (const KSUP::KError& error) {
            return error.GetCode();
        }
        return 0;
    }
};

TEST_P(StartedModeTest, LoadsItsSectionAndPerhapsTheCommandLine) {
    world.GivenArguments({"--addProfileLine=s,k,v"});
    GivenScript(twoSections);
    Initialize();
    static_cast<void>(EndOfRun()); // the added rule has no profile to write to
    EXPECT_EQ(installer->GetMode(), GetParam().mode);
    EXPECT_THAT(Sections(), ElementsAre(GetParam().section));
    std::vector<std::string> expected;
    for (const std::string& description : GetParam().added) {
        expected.push_back(InTree(description));
    }
    EXPECT_EQ(Added(), expected);
    EXPECT_EQ(GetParam().added.size(), installer->GetMaxCount());
}

TEST_P(StartedModeTest, RunsItsRulesAndPerhapsWritesTheRecord) {
    GivenScript(twoSections);
    Initialize();
    EXPECT_EQ(EndOfRun(), GetParam().code);
    EXPECT_TRUE(tree.Exists(GetParam().made));
    EXPECT_EQ(installer->GetCompletedCount(), 1U);
    EXPECT_EQ(installer->GetMaxCount(), 1U);
    EXPECT_EQ(InstallPath() + "/", KSUP::KUtil::GetPathMap(57).c_str());
}

INSTANTIATE_TEST_SUITE_P(
    Mode,
    StartedModeTest,
    ::testing::Values(
        StartedMode{
            "Install",
            1,
            "install",
            {"Create path @T@/installed", "Put profile option k=v"},
            "installed",
            64},
        StartedMode{
            "Upgrade",
            2,
            "install",
            {"Create path @T@/installed", "Put profile option k=v"},
            "installed",
            64},
        StartedMode{"Uninstall", 3, "remove", {"Create path @T@/removed"}, "removed", 0},
        StartedMode{
            "Install4",
            4,
            "install",
            {"Create path @T@/installed", "Put profile option k=v"},
            "installed",
            64},
        StartedMode{
            "Install5",
            5,
            "install",
            {"Create path @T@/installed", "Put profile option k=v"},
            "installed",
            64}
    ),
    KTEST::NameOfRow()
);

class RefusedModeTest : public KInstallerTest, public ::testing::WithParamInterface<unsigned> {};

TEST_P(RefusedModeTest, IsError36AndIsTold) {
    GivenScript(twoSections);
    Initialize();
    const auto mode = static_cast<KINS::MODE>(GetParam());
    const KSUP::KError error = ErrorOf([&] { installer->Start(InstallPath(), mode); });
    EXPECT_THAT(PlaceWithoutLine(error), ::testing::StartsWith("400 36.0 ins/KInstaller:? Start"));
    EXPECT_THAT(trace.Texts(400), ElementsAre(error.GetSummary().c_str()));
    EXPECT_EQ(GetParam(), installer->GetMode());
    EXPECT_THAT(Sections(), IsEmpty());
    EXPECT_TRUE(installer->IsComplete());
}

INSTANTIATE_TEST_SUITE_P(Mode, RefusedModeTest, ::testing::Values(0U, 6U, 7U, 4294967295U));

TEST_F(KInstallerTest, AnEmptyPathIsError36ForTheFrontEnds) {
    GivenScript(twoSections);
    Initialize();
    const KSUP::KError install = ErrorOf([&] { installer->StartInstall(""); });
    EXPECT_THAT(
        PlaceWithoutLine(install), ::testing::StartsWith("400 36.0 ins/KInstaller:? StartInstall")
    );
    const KSUP::KError uninstall = ErrorOf([&] { installer->StartUninstall(""); });
    EXPECT_THAT(
        PlaceWithoutLine(uninstall),
        ::testing::StartsWith("400 36.0 ins/KInstaller:? StartUninstall")
    );
    EXPECT_EQ(installer->GetMode(), KINS::ModeNone);
    EXPECT_THAT(Sections(), IsEmpty());
}

TEST_F(KInstallerTest, StartWithAnEmptyPathTakesTheDefaultPathUnexpanded) {
    GivenScript("[install]\ndefaultPath.$os$=@T@/$product$\n[remove]\n");
    Initialize();
    installer->Start("", KINS::ModeUninstall);
    WaitForEnd();
    EXPECT_EQ(tree.Path("$product$/"), KSUP::KUtil::GetPathMap(57).c_str());
}

TEST_F(KInstallerTest, StartInstallIsModeInstallWhereNoProductIs) {
    GivenScript(twoSections);
    Initialize();
    installer->StartInstall(InstallPath());
    EXPECT_EQ(ErrorOf([&] { WaitForEnd(); }).GetCode(), 64U);
    EXPECT_EQ(installer->GetMode(), KINS::ModeInstall);
}

TEST_F(KInstallerTest, AMalformedScriptLeavesStartAndNoThreadRuns) {
    GivenScript("[remove]\ndirectory=create,@T@/made\nfile=copy\n");
    Initialize();
    EXPECT_EQ(ErrorOf([&] { installer->StartUninstall(InstallPath()); }).GetCode(), 7000U);
    EXPECT_TRUE(installer->IsComplete());
    EXPECT_FALSE(tree.Exists("made"));
    EXPECT_EQ(installer->GetMaxCount(), 1U);
    EXPECT_EQ(installer->GetMode(), KINS::ModeUninstall);
}

TEST_F(KInstallerTest, AnUnreadableOptionLeavesStartAndNoThreadRuns) {
    world.GivenArguments({"--addProfileLine"});
    GivenScript(twoSections);
    Initialize();
    EXPECT_EQ(ErrorOf([&] { installer->StartInstall(InstallPath()); }).GetCode(), 36U);
    EXPECT_TRUE(installer->IsComplete());
    EXPECT_FALSE(tree.Exists("installed"));
}

TEST_F(KInstallerTest, AutoUninstallWithoutAProductDoesNothing) {
    GivenScript(twoSections);
    Initialize();
    installer->AutoUninstall();
    EXPECT_EQ(installer->GetMode(), KINS::ModeNone);
    EXPECT_THAT(Sections(), IsEmpty());
    EXPECT_FALSE(tree.Exists("removed"));
}

TEST_F(KInstallerTest, AutoInstallRunsToTheEndAndPassesItsErrorOn) {
    GivenScript("[install]\ndefaultPath.$os$=@T@/$product$\ndirectory=create,$pathTarget$made\n");
    Initialize();
    KTEST::Injection inject;
    unsigned dispatches = 0;
    inject.SvcPollingDispatch = [&] {
        ++dispatches;
        ::usleep(1000);
        return 0U;
    };
    statuses.At(1, [] { ::usleep(20000); });
    EXPECT_EQ(ErrorOf([&] { installer->AutoInstall(); }).GetCode(), 64U);
    EXPECT_TRUE(tree.Exists("DPS/made"));
    EXPECT_EQ(installer->GetMode(), KINS::ModeInstall);
    EXPECT_LT(0U, dispatches);
}

// Running

TEST_F(KInstallerTest, ACleanRunIsComplete) {
    GivenScript(twoSections);
    Initialize();
    RunRemoval();
    EXPECT_TRUE(installer->IsComplete());
    EXPECT_EQ("Creating directory " + tree.Path("removed"), installer->GetStatus().c_str());
    EXPECT_EQ("- Creating directory " + tree.Path("removed"), statuses.Lines().at(0));
}

TEST_F(KInstallerTest, TheLogTellsTheWholeRun) {
    GivenScript(twoSections);
    Initialize();
    RunRemoval();
    EXPECT_THAT(
        LogLines(),
        ElementsAre(
            "KINS::KInstaller: Loading install script " + tree.Path("install.ini"),
            "KINS::KInstallRuleManager: Processing section -> remove",
            "KINS::KInstallRuleManager: Adding rule -> Create path " + tree.Path("removed"),
            "KINS::KInstallRuleManager: Executing rule -> Create path " + tree.Path("removed")
        )
    );
}

TEST_F(KInstallerTest, AFailingRulesErrorIsThrownEachTimeItIsAskedFor) {
    GivenScript("[remove]\nfile=copy,none,@T@,@T@\ndirectory=create,@T@/later\n");
    Initialize();
    installer->StartUninstall(InstallPath());
    EXPECT_EQ(ErrorOf([&] { WaitForEnd(); }).GetCode(), static_cast<unsigned>(ENOENT));
    const KSUP::KError again = ErrorOf([&] { installer->IsComplete(); });
    EXPECT_THAT(again.GetInfo().GetString().c_str(), ::testing::HasSubstr(tree.Path("none")));
    EXPECT_FALSE(tree.Exists("later"));
    EXPECT_EQ(installer->GetCompletedCount(), 0U);
}

TEST_F(KInstallerTest, RulesAndCallbackRunOnOneThreadOfTheRunsOwn) {
    GivenScript("[remove]\ndirectory=create,@T@/a\ndirectory=delete,@T@/a\n");
    Initialize();
    RunRemoval();
    EXPECT_EQ(statuses.Threads().size(), 1U);
    EXPECT_NE(statuses.Threads().at(0), std::this_thread::get_id());
}

TEST_F(KInstallerTest, TheSystemIsGivenTheFirst15BytesOfTheThreadsName) {
    GivenScript(twoSections);
    Initialize();
    std::array<char, 32> name{};
    statuses.At(1, [&] { ::pthread_getname_np(::pthread_self(), name.data(), name.size()); });
    RunRemoval();
    EXPECT_STREQ(name.data(), "Ins++ installat");
}

TEST_F(KInstallerTest, WhileTheRunLastsItIsNotComplete) {
    GivenScript(twoSections);
    Initialize();
    bool complete = true;
    statuses.At(1, [&] { complete = installer->IsComplete(); });
    RunRemoval();
    EXPECT_FALSE(complete);
}

TEST_F(KInstallerTest, StopOnlyRequests) {
    GivenScript("[remove]\ndirectory=create,@T@/a\ndirectory=create,@T@/b\n");
    Initialize();
    bool cancelled = false;
    statuses.At(1, [&] {
        installer->Stop(); // on the run's own thread: waiting for its end would be for ever
        cancelled = installer->IsCancelled();
    });
    installer->StartUninstall(InstallPath());
    EXPECT_EQ(ErrorOf([&] { WaitForEnd(); }).GetCode(), 66U);
    EXPECT_TRUE(cancelled);
    EXPECT_EQ(installer->GetCompletedCount(), 1U);
    EXPECT_EQ(installer->GetMaxCount(), 2U);
    EXPECT_FALSE(tree.Exists("b"));
}

TEST_F(KInstallerTest, AStopBeforeTheStartIsRemembered) {
    GivenScript(twoSections);
    Initialize();
    installer->Stop();
    installer->StartUninstall(InstallPath());
    EXPECT_EQ(ErrorOf([&] { WaitForEnd(); }).GetCode(), 66U);
    EXPECT_TRUE(installer->IsCancelled());
    EXPECT_FALSE(tree.Exists("removed"));
}

TEST_F(KInstallerTest, ACancelledInstallSeeksNoRecord) {
    GivenScript(twoSections);
    Initialize();
    statuses.At(1, [&] { installer->Stop(); });
    installer->StartInstall(InstallPath());
    EXPECT_EQ(ErrorOf([&] { WaitForEnd(); }).GetCode(), 66U); // 64 would come from the record
}

TEST_F(KInstallerTest, AnEmptyCallbackIsNone) {
    installer->SetCallback({});
    GivenScript(twoSections);
    Initialize();
    EXPECT_NO_THROW(RunRemoval());
    EXPECT_EQ("Creating directory " + tree.Path("removed"), installer->GetStatus().c_str());
}

TEST_F(KInstallerTest, DestructionTakesTheMessagesBackBeforeItDeletesWhatItOwns) {
    KTEST::Injection inject;
    std::vector<std::string> order;
    inject.SvcLoadMessage = [](unsigned, const char*) { return 0U; };
    inject.SvcUnloadMessage = [&](unsigned catalogue) {
        order.push_back("unload " + std::to_string(catalogue));
        return 0U;
    };
    std::shared_ptr<int> life(new int, [&](const int* memory) {
        order.emplace_back("callback");
        delete memory;
    });
    installer->SetCallback([life](const KString&, double) {});
    life.reset();
    installer.reset();
    EXPECT_THAT(order, ElementsAre("unload 44", "callback"));
}

TEST_F(KInstallerTest, OneThatWasNeverInitializedLeavesTheMessagesOfAnother) {
    GivenScript(twoSections);
    Initialize();
    const std::string text = SvcGetMessagePtr(0x2C0003);
    ASSERT_NE(text, "");
    { const KInstaller other; }
    EXPECT_EQ(text, SvcGetMessagePtr(0x2C0003));
}

TEST_F(KInstallerTest, OneThatWasInitializedOnceMoreTakesBackAllThatItLoaded) {
    EXPECT_THROW(installer->Initialize(tree.Path("none.ini")), KSUP::KError);
    GivenScript(twoSections);
    Initialize();
    EXPECT_STRNE(SvcGetMessagePtr(0x2C0003), "");
    installer.reset();
    EXPECT_STREQ(SvcGetMessagePtr(0x2C0003), "");
}

TEST_F(KInstallerTest, AFirstRunLeavesNoTrace) {
    GivenScript(twoSections);
    Initialize();
    RunRemoval();
    EXPECT_FALSE(installer->IsProductInstalled());
    EXPECT_THAT(trace.Messages(), IsEmpty());
}

TEST_F(KInstallerTest, KnowsTheNamesOfAllMacrosOnce) {
    const std::vector<KString> names = KInstaller::GetMacroNames();
    EXPECT_EQ(names.size(), 33U);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ(names.end(), std::adjacent_find(names.begin(), names.end()));
    KTEST::EngineWorld::GivenKey("targetVerInfo", "2.1-37");
    GivenScript(twoSections);
    Initialize();
    RunRemoval(); // with which all are known
    for (const KString& name : names) {
        const KString text = "$" + name + "$";
        EXPECT_NE(text, installer->ExpandMacros(text));
    }
}

TEST_F(KInstallerTest, TellsWhereItsLogIsBeforeItOpensIt) {
    EXPECT_EQ(LogPath(), installer->GetSetupLogPath().c_str());
    GivenScript(twoSections);
    Initialize();
    EXPECT_EQ(LogPath(), installer->GetLog().GetPath().c_str());
}

TEST_F(KInstallerTest, AFailedRunLeavesNothingInTheWayOfTheNextInstaller) {
    GivenScript("[remove]\nfile=copy,none,@T@,@T@\n");
    Initialize();
    EXPECT_THROW(RunRemoval(), KSUP::KError);
    installer = std::make_unique<KInstaller>();
    GivenScript(twoSections);
    Initialize();
    EXPECT_NO_THROW(RunRemoval());
    EXPECT_TRUE(tree.Exists("removed"));
}

} // namespace
