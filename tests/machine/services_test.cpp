// SPDX-License-Identifier: MIT
//
// Services against a real systemd: how they are made, named and asked about.
#include "../support/NameOfRow.h"
#include "../support/WriteRecorder.h"
#include "ServicesRig.h"

#include <sup++/SvcFile.h>
#include <sup++/SvcService.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using namespace KTEST;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Creating

TEST_F(ServicesTest, AFreshServiceIsLoadedEnabledAndNotStarted) {
    EXPECT_EQ(Create(GivenProgram(sleeps), "-v", "The test"), 0U);
    EXPECT_EQ(Property("LoadState"), "loaded");
    EXPECT_EQ(Property("UnitFileState"), "enabled");
    EXPECT_EQ(Property("Description"), "The test");
    EXPECT_EQ(Property("Type"), "exec");
    EXPECT_EQ(Property("Restart"), "on-failure");
    EXPECT_EQ(StateOfService(), "inactive dead");
    EXPECT_EQ(Property("NeedDaemonReload"), "no");
    EXPECT_EQ(Property("FragmentPath"), unitPath);
    EXPECT_EQ(Output(std::string("stat -c '%a %U %G' ") + unitPath), "644 root root");
    EXPECT_EQ(Output("systemd-analyze verify inspp-test.service"), "");
}

TEST_F(ServicesTest, CreatedAgainItIsReplacedAndStaysEnabled) {
    EXPECT_EQ(Create("/bin/true", "one"), 0U);
    EXPECT_EQ(Create("/bin/true", "two"), 0U);
    EXPECT_THAT(Property("ExecStart"), HasSubstr("argv[]=/bin/true two ;"));
    EXPECT_EQ(Property("UnitFileState"), "enabled");
    EXPECT_EQ(Property("NeedDaemonReload"), "no");
}

TEST_F(ServicesTest, CreatedAgainWhileItRunsItGoesOn) {
    GivenRunningService();
    const std::string process = Property("MainPID");
    EXPECT_EQ(Create(tree.Path("program"), "new"), 0U);
    EXPECT_EQ(Property("MainPID"), process);
    EXPECT_EQ(State(), 4U);
}

TEST_F(ServicesTest, AForeignUnitIsRefusedAndStaysAsItIs) {
    GivenForeignUnit("ExecStart=/bin/sleep 1000");
    const std::string before = ReadText(unitPath);
    EXPECT_EQ(Create("/bin/true"), 181U);
    ExpectErrorText(unitPath);
    EXPECT_EQ(ReadText(unitPath), before);
    EXPECT_EQ(Property("UnitFileState"), "disabled");
}

TEST_F(ServicesTest, AForeignUnitInAnotherDirectoryIsRefusedToo) {
    GivenForeignUnit(
        "ExecStart=/bin/sleep 1000", "/usr/local/lib/systemd/system/inspp-test.service"
    );
    EXPECT_EQ(Create("/bin/true"), 181U);
    EXPECT_FALSE(fs::exists(unitPath));
}

TEST_F(ServicesTest, AMaskedNameIsRefused) {
    fs::create_symlink("/dev/null", unitPath);
    EXPECT_EQ(Create("/bin/true"), 181U);
    EXPECT_EQ(fs::read_symlink(unitPath), "/dev/null");
    EXPECT_EQ(Create(""), 182U) << "adopting it cannot work either";
    ExpectErrorText("masked");
}

TEST_F(ServicesTest, AnAdoptedUnitIsLoadedAndEnabledAsItIs) {
    // As a file rule leaves it: systemd has not read it yet.
    WriteText(
        unitPath, "[Service]\nExecStart=/bin/sleep 1000\n[Install]\nWantedBy=multi-user.target\n"
    );
    const std::string before = ReadText(unitPath);
    EXPECT_EQ(Create("", "ignored", "ignored"), 0U);
    EXPECT_EQ(ReadText(unitPath), before);
    EXPECT_EQ(Property("LoadState"), "loaded");
    EXPECT_EQ(Property("UnitFileState"), "enabled");
    EXPECT_EQ(SvcStartService(0, service), 0U);
    EXPECT_EQ(StateOfService(), "active running");
}

TEST_F(ServicesTest, AnAdoptedUnitWithoutInstallSectionIsLoaded) {
    WriteText(unitPath, "[Service]\nExecStart=/bin/sleep 1000\n");
    EXPECT_EQ(Create(""), 0U);
    EXPECT_EQ(Property("UnitFileState"), "static");
}

TEST_F(ServicesTest, AnAdoptedUnitThatSystemdCannotUseIsAFailure) {
    WriteText(unitPath, "[Service]\nExecStart=bin/relative\n");
    EXPECT_EQ(Create(""), 182U);
    ExpectErrorText("bad-setting");
}

TEST_F(ServicesTest, WithoutAProgramTheServiceLinkIsRun) {
    fs::create_directory("/etc/inspp-test");
    fs::create_symlink(GivenProgram(sleeps), "/etc/inspp-test/inspp-test");
    EXPECT_EQ(Create("", "-x"), 0U);
    EXPECT_THAT(Property("ExecStart"), HasSubstr("argv[]=/etc/inspp-test/inspp-test -x ;"));
    EXPECT_EQ(SvcStartService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_EQ(StateOfService(), "active running");
}

TEST_F(ServicesTest, WithoutAProgramAUnitAndALinkThereIsNoService) {
    EXPECT_EQ(Create(""), 180U);
    ExpectErrorText("/etc/inspp-test/inspp-test");
    EXPECT_EQ(Property("LoadState"), "not-found");
}

struct ProgramRow {
    const char* name;
    const char* program;
};

class ServicesProgramTest : public ServicesTest,
                            public ::testing::WithParamInterface<ProgramRow> {};

TEST_P(ServicesProgramTest, IsRefusedAndNothingIsMade) {
    EXPECT_EQ(Create(GetParam().program), 36U);
    EXPECT_FALSE(fs::exists(unitPath));
}

INSTANTIATE_TEST_SUITE_P(
    AProgram,
    ServicesProgramTest,
    ::testing::Values(
        ProgramRow{"ThatIsRelative", "bin/true"},
        ProgramRow{"ThatIsADirectory", "/bin/"},
        ProgramRow{"WithAQuote", "/opt/\"p\""},
        ProgramRow{"WithABackslash", "/opt/\\p"},
        ProgramRow{"WithALineBreak", "/opt/p\nUser=nobody"}
    ),
    NameOfRow()
);

// Paths and arguments: what the program really gets

struct ArgumentsRow {
    const char* name;
    std::string directory;
    std::string text;
    std::vector<std::string> arguments;
};

class ServicesArgumentsTest : public ServicesTest,
                              public ::testing::WithParamInterface<ArgumentsRow> {};

TEST_P(ServicesArgumentsTest, ReachTheProgramAsTheyStand) {
    const ArgumentsRow& row = GetParam();
    const std::string told = tree.Path("told");
    const std::string program = GivenProgram(
        "for a in \"$0\" \"$@\"; do printf '[%s]\\n' \"$a\"; done >" + told + "; " + sleeps,
        row.directory + "program"
    );
    ASSERT_EQ(Create(program, row.text), 0U) << SvcGetServiceErrorText();
    Impatient(10s).Start();
    std::string expected = '[' + program + ']';
    for (const std::string& argument : row.arguments) {
        expected += "\n[" + argument + ']';
    }
    Await([&] { return ReadText(told) == expected; });
    EXPECT_EQ(ReadText(told), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    ServicesArgumentsTest,
    ::testing::Values(
        ArgumentsRow{"Nothing", "", "", {}},
        ArgumentsRow{"Words", "", " -c  /etc/a -v", {"-c", "/etc/a", "-v"}},
        ArgumentsRow{"Blanks", "", "\"our server\" 'a  b'", {"our server", "a  b"}},
        ArgumentsRow{"AnEmptyOne", "", "\"\" x", {"", "x"}},
        ArgumentsRow{"Quotes", "", "'\"' \"'\" \"\\\"\"", {"\"", "'", "\""}},
        ArgumentsRow{"Backslashes", "", "a\\\\n '\\t' \\\\", {"a\\n", "\\t", "\\"}},
        ArgumentsRow{"Percents", "", "50% %n %% %", {"50%", "%n", "%%", "%"}},
        ArgumentsRow{
            "Dollars", "", "$HOME ${HOME} $$ $ a$b", {"$HOME", "${HOME}", "$$", "$", "a$b"}},
        ArgumentsRow{"Semicolons", "", "a ; b \\;", {"a", ";", "b", ";"}},
        ArgumentsRow{"ControlCharacters", "", "'a\tb' 'c\nd'", {"a\tb", "c\nd"}},
        ArgumentsRow{"OtherLetters", "", "größe=ü 日本", {"größe=ü", "日本"}},
        ArgumentsRow{
            "WhatShellsExpand",
            "",
            "* ~ `id` $(id) <a >b &",
            {"*", "~", "`id`", "$(id)", "<a", ">b", "&"}},
        ArgumentsRow{
            "WhatUnitFilesMean", "", "-x @y !z +a :b #c", {"-x", "@y", "!z", "+a", ":b", "#c"}},
        ArgumentsRow{"AProgramWithBlanks", "our server/", "-v", {"-v"}},
        ArgumentsRow{"AProgramWithPercents", "50%n/", "-v", {"-v"}},
        ArgumentsRow{"AProgramWithDollars", "a ${HOME} $HOME %n/", "-v", {"-v"}},
        ArgumentsRow{"AProgramInOtherLetters", "größe/", "-v", {"-v"}}
    ),
    NameOfRow()
);

struct DisplayRow {
    const char* name;
    const char* display;
    const char* shown;
};

class ServicesDisplayNameTest : public ServicesTest,
                                public ::testing::WithParamInterface<DisplayRow> {};

TEST_P(ServicesDisplayNameTest, IsShownAsItStands) {
    ASSERT_EQ(Create("/bin/true", "", GetParam().display), 0U);
    EXPECT_EQ(Property("Description"), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    OfA,
    ServicesDisplayNameTest,
    ::testing::Values(
        DisplayRow{"Nothing", "", "inspp-test.service"},
        DisplayRow{
            "Sentence",
            "Our server: 50% of \"all\" $HOME \\n '",
            "Our server: 50% of \"all\" $HOME \\n '"},
        DisplayRow{"OtherLetters", "Größe 日本", "Größe 日本"}
    ),
    NameOfRow()
);

// Names

struct UnknownRow {
    const char* name;
    std::function<unsigned(const char*)> call;
};

class ServicesUnknownTest : public ServicesTest,
                            public ::testing::WithParamInterface<UnknownRow> {};

TEST_P(ServicesUnknownTest, IsStatus180InWords) {
    EXPECT_EQ(GetParam().call(service), 180U);
    ExpectErrorText("there is no such service");
}

TEST_P(ServicesUnknownTest, NamesThatArePathsAreStatus36) {
    EXPECT_EQ(GetParam().call("/etc/systemd/system/dbus"), 36U);
    EXPECT_EQ(GetParam().call("../dbus"), 36U);
    EXPECT_EQ(GetParam().call("--help"), 36U);
}

INSTANTIATE_TEST_SUITE_P(
    To,
    ServicesUnknownTest,
    ::testing::Values(
        UnknownRow{"Start", [](const char* name) { return SvcStartService(0, name); }},
        UnknownRow{"Stop", [](const char* name) { return SvcStopService(0, name); }},
        UnknownRow{"StopEx", [](const char* name) { return SvcStopServiceEx(0, name, 30000); }},
        UnknownRow{"Delete", [](const char* name) { return SvcDeleteService(0, name); }},
        UnknownRow{
            "GetStatus",
            [](const char* name) {
                unsigned state = 77;
                const unsigned status = SvcGetServiceStatus(0, name, &state);
                return state == 77 ? status : 0;
            }}
    ),
    NameOfRow()
);

struct NameRow {
    const char* name;
    std::string service;
};

class ServicesNameTest : public ServicesTest, public ::testing::WithParamInterface<NameRow> {};

TEST_P(ServicesNameTest, LivesLikeAnyOther) {
    const char* const name = GetParam().service.c_str();
    unsigned state = 0;
    ASSERT_EQ(SvcCreateService(0, name, "", GivenProgram(sleeps).c_str(), ""), 0U)
        << SvcGetServiceErrorText();
    EXPECT_EQ(SvcStartService(0, name), 0U) << SvcGetServiceErrorText();
    EXPECT_EQ(SvcGetServiceStatus(0, name, &state), 0U);
    EXPECT_EQ(state, 4U);
    EXPECT_EQ(SvcDeleteService(0, name), 0U) << SvcGetServiceErrorText();
    EXPECT_EQ(Output("find /etc/systemd/system -name '*inspp*'"), "");
}

INSTANTIATE_TEST_SUITE_P(
    AServiceWith,
    ServicesNameTest,
    ::testing::Values(
        NameRow{"OddCharacters", "inspp:t_e-s.t\\x2d"},
        NameRow{"AnInstance", "inspp@one"},
        NameRow{"AnEndingOfItsOwn", "inspp.service"},
        NameRow{"TheLongestName", "inspp" + std::string(242, 'a')}
    ),
    NameOfRow()
);

// What is told of it

class ServiceWritesTest : public ServicesTest {
  protected:
    ServiceWritesTest() {
        // So that it is there on each machine, and stays.
        fs::create_directories(fs::path(keptFile).parent_path());
        WriteText(keptFile, "");
        EXPECT_EQ(SvcSetWriteListener(&WriteRecorder::Record, &written), 0U);
    }
    ~ServiceWritesTest() override {
        EXPECT_EQ(SvcSetWriteListener(nullptr, nullptr), 0U);
        fs::remove(keptFile);
    }

    static constexpr const char* keptFile =
        "/etc/systemd/system/multi-user.target.wants/inspp-kept";
    WriteRecorder written{"/etc/systemd/system"};
};

TEST_F(ServiceWritesTest, TheUnitFileAndTheLinkThatSystemdLaysAreTold) {
    EXPECT_EQ(Create("/bin/true"), 0U);
    EXPECT_TRUE(fs::is_symlink(enablingLink));
    EXPECT_THAT(
        written.Lines(),
        ElementsAre("file inspp-test.service", "link multi-user.target.wants/inspp-test.service")
    );
}

TEST_F(ServiceWritesTest, ALinkThatIsThereIsNotToldAgain) {
    EXPECT_EQ(Create("/bin/true"), 0U);
    EXPECT_EQ(Create("/bin/true", "other"), 0U);
    EXPECT_THAT(
        written.Lines(),
        ElementsAre(
            "file inspp-test.service",
            "link multi-user.target.wants/inspp-test.service",
            "file inspp-test.service"
        )
    );
}

TEST_F(ServiceWritesTest, TheLinkThatSystemdDeletesAndTheUnitFileAreTold) {
    EXPECT_EQ(SvcSetWriteListener(nullptr, nullptr), 0U);
    EXPECT_EQ(Create("/bin/true"), 0U);
    EXPECT_EQ(SvcSetWriteListener(&WriteRecorder::Record, &written), 0U);
    EXPECT_EQ(SvcDeleteService(0, service), 0U);
    EXPECT_THAT(
        written.Lines(),
        ElementsAre(
            "file deleted multi-user.target.wants/inspp-test.service",
            "file deleted inspp-test.service"
        )
    );
}

TEST_F(ServiceWritesTest, DirectoriesThatSystemdMakesAndRemovesForLinksAreTold) {
    WriteText(
        unitPath,
        "# Installed by Ins++\n[Service]\nExecStart=/bin/true\n"
        "[Install]\nWantedBy=inspp-none.target\n"
    );
    EXPECT_EQ(Create(""), 0U);
    EXPECT_EQ(SvcDeleteService(0, service), 0U);
    EXPECT_FALSE(fs::exists("/etc/systemd/system/inspp-none.target.wants"));
    EXPECT_THAT(
        written.Lines(),
        ElementsAre(
            "directory inspp-none.target.wants",
            "link inspp-none.target.wants/inspp-test.service",
            "file deleted inspp-none.target.wants/inspp-test.service",
            "directory deleted inspp-none.target.wants",
            "file deleted inspp-test.service"
        )
    );
}

TEST_F(ServiceWritesTest, WithoutSystemdTheSameIsTold) {
    HideSystemd();
    EXPECT_EQ(Create("/bin/true"), 0U);
    EXPECT_EQ(SvcDeleteService(0, service), 0U);
    ShowSystemd();
    EXPECT_THAT(
        written.Lines(),
        ElementsAre(
            "file inspp-test.service",
            "link multi-user.target.wants/inspp-test.service",
            "file deleted multi-user.target.wants/inspp-test.service",
            "file deleted inspp-test.service"
        )
    );
}

} // namespace
