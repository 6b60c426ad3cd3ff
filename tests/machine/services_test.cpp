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
    EXPECT_EQ(0U, Create(GivenProgram(sleeps), "-v", "The test"));
    EXPECT_EQ("loaded", Property("LoadState"));
    EXPECT_EQ("enabled", Property("UnitFileState"));
    EXPECT_EQ("The test", Property("Description"));
    EXPECT_EQ("exec", Property("Type"));
    EXPECT_EQ("on-failure", Property("Restart"));
    EXPECT_EQ("inactive dead", StateOfService());
    EXPECT_EQ("no", Property("NeedDaemonReload"));
    EXPECT_EQ(unitPath, Property("FragmentPath"));
    EXPECT_EQ("644 root root", Output(std::string("stat -c '%a %U %G' ") + unitPath));
    EXPECT_EQ("", Output("systemd-analyze verify inspp-test.service"));
}

TEST_F(ServicesTest, CreatedAgainItIsReplacedAndStaysEnabled) {
    EXPECT_EQ(0U, Create("/bin/true", "one"));
    EXPECT_EQ(0U, Create("/bin/true", "two"));
    EXPECT_THAT(Property("ExecStart"), HasSubstr("argv[]=/bin/true two ;"));
    EXPECT_EQ("enabled", Property("UnitFileState"));
    EXPECT_EQ("no", Property("NeedDaemonReload"));
}

TEST_F(ServicesTest, CreatedAgainWhileItRunsItGoesOn) {
    GivenRunningService();
    const std::string process = Property("MainPID");
    EXPECT_EQ(0U, Create(tree.Path("program"), "new"));
    EXPECT_EQ(process, Property("MainPID"));
    EXPECT_EQ(4U, State());
}

TEST_F(ServicesTest, AForeignUnitIsRefusedAndStaysAsItIs) {
    GivenForeignUnit("ExecStart=/bin/sleep 1000");
    const std::string before = ReadText(unitPath);
    EXPECT_EQ(181U, Create("/bin/true"));
    ExpectErrorText(unitPath);
    EXPECT_EQ(before, ReadText(unitPath));
    EXPECT_EQ("disabled", Property("UnitFileState"));
}

TEST_F(ServicesTest, AForeignUnitInAnotherDirectoryIsRefusedToo) {
    GivenForeignUnit(
        "ExecStart=/bin/sleep 1000", "/usr/local/lib/systemd/system/inspp-test.service"
    );
    EXPECT_EQ(181U, Create("/bin/true"));
    EXPECT_FALSE(fs::exists(unitPath));
}

TEST_F(ServicesTest, AMaskedNameIsRefused) {
    fs::create_symlink("/dev/null", unitPath);
    EXPECT_EQ(181U, Create("/bin/true"));
    EXPECT_EQ("/dev/null", fs::read_symlink(unitPath));
    EXPECT_EQ(182U, Create("")) << "adopting it cannot work either";
    ExpectErrorText("masked");
}

TEST_F(ServicesTest, AnAdoptedUnitIsLoadedAndEnabledAsItIs) {
    // As a file rule leaves it: systemd has not read it yet.
    WriteText(
        unitPath, "[Service]\nExecStart=/bin/sleep 1000\n[Install]\nWantedBy=multi-user.target\n"
    );
    const std::string before = ReadText(unitPath);
    EXPECT_EQ(0U, Create("", "ignored", "ignored"));
    EXPECT_EQ(before, ReadText(unitPath));
    EXPECT_EQ("loaded", Property("LoadState"));
    EXPECT_EQ("enabled", Property("UnitFileState"));
    EXPECT_EQ(0U, SvcStartService(0, service));
    EXPECT_EQ("active running", StateOfService());
}

TEST_F(ServicesTest, AnAdoptedUnitWithoutInstallSectionIsLoaded) {
    WriteText(unitPath, "[Service]\nExecStart=/bin/sleep 1000\n");
    EXPECT_EQ(0U, Create(""));
    EXPECT_EQ("static", Property("UnitFileState"));
}

TEST_F(ServicesTest, AnAdoptedUnitThatSystemdCannotUseIsAFailure) {
    WriteText(unitPath, "[Service]\nExecStart=bin/relative\n");
    EXPECT_EQ(182U, Create(""));
    ExpectErrorText("bad-setting");
}

TEST_F(ServicesTest, WithoutAProgramTheServiceLinkIsRun) {
    fs::create_directory("/etc/inspp-test");
    fs::create_symlink(GivenProgram(sleeps), "/etc/inspp-test/inspp-test");
    EXPECT_EQ(0U, Create("", "-x"));
    EXPECT_THAT(Property("ExecStart"), HasSubstr("argv[]=/etc/inspp-test/inspp-test -x ;"));
    EXPECT_EQ(0U, SvcStartService(0, service)) << SvcGetServiceErrorText();
    EXPECT_EQ("active running", StateOfService());
}

TEST_F(ServicesTest, WithoutAProgramAUnitAndALinkThereIsNoService) {
    EXPECT_EQ(180U, Create(""));
    ExpectErrorText("/etc/inspp-test/inspp-test");
    EXPECT_EQ("not-found", Property("LoadState"));
}

struct ProgramRow {
    const char* name;
    const char* program;
};

class ServicesProgramTest : public ServicesTest,
                            public ::testing::WithParamInterface<ProgramRow> {};

TEST_P(ServicesProgramTest, IsRefusedAndNothingIsMade) {
    EXPECT_EQ(36U, Create(GetParam().program));
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
    ASSERT_EQ(0U, Create(program, row.text)) << SvcGetServiceErrorText();
    Impatient(10s).Start();
    std::string expected = '[' + program + ']';
    for (const std::string& argument : row.arguments) {
        expected += "\n[" + argument + ']';
    }
    Await([&] { return ReadText(told) == expected; });
    EXPECT_EQ(expected, ReadText(told));
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
    ASSERT_EQ(0U, Create("/bin/true", "", GetParam().display));
    EXPECT_EQ(GetParam().shown, Property("Description"));
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
    EXPECT_EQ(180U, GetParam().call(service));
    ExpectErrorText("there is no such service");
}

TEST_P(ServicesUnknownTest, NamesThatArePathsAreStatus36) {
    EXPECT_EQ(36U, GetParam().call("/etc/systemd/system/dbus"));
    EXPECT_EQ(36U, GetParam().call("../dbus"));
    EXPECT_EQ(36U, GetParam().call("--help"));
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
    ASSERT_EQ(0U, SvcCreateService(0, name, "", GivenProgram(sleeps).c_str(), ""))
        << SvcGetServiceErrorText();
    EXPECT_EQ(0U, SvcStartService(0, name)) << SvcGetServiceErrorText();
    EXPECT_EQ(0U, SvcGetServiceStatus(0, name, &state));
    EXPECT_EQ(4U, state);
    EXPECT_EQ(0U, SvcDeleteService(0, name)) << SvcGetServiceErrorText();
    EXPECT_EQ("", Output("find /etc/systemd/system -name '*inspp*'"));
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
        EXPECT_EQ(0U, SvcSetWriteListener(&WriteRecorder::Record, &written));
    }
    ~ServiceWritesTest() override {
        EXPECT_EQ(0U, SvcSetWriteListener(nullptr, nullptr));
        fs::remove(keptFile);
    }

    static constexpr const char* keptFile =
        "/etc/systemd/system/multi-user.target.wants/inspp-kept";
    WriteRecorder written{"/etc/systemd/system"};
};

TEST_F(ServiceWritesTest, TheUnitFileAndTheLinkThatSystemdLaysAreTold) {
    EXPECT_EQ(0U, Create("/bin/true"));
    EXPECT_TRUE(fs::is_symlink(enablingLink));
    EXPECT_THAT(
        written.Lines(),
        ElementsAre("file inspp-test.service", "link multi-user.target.wants/inspp-test.service")
    );
}

TEST_F(ServiceWritesTest, ALinkThatIsThereIsNotToldAgain) {
    EXPECT_EQ(0U, Create("/bin/true"));
    EXPECT_EQ(0U, Create("/bin/true", "other"));
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
    EXPECT_EQ(0U, SvcSetWriteListener(nullptr, nullptr));
    EXPECT_EQ(0U, Create("/bin/true"));
    EXPECT_EQ(0U, SvcSetWriteListener(&WriteRecorder::Record, &written));
    EXPECT_EQ(0U, SvcDeleteService(0, service));
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
    EXPECT_EQ(0U, Create(""));
    EXPECT_EQ(0U, SvcDeleteService(0, service));
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
    EXPECT_EQ(0U, Create("/bin/true"));
    EXPECT_EQ(0U, SvcDeleteService(0, service));
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
