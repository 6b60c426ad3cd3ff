// SPDX-License-Identifier: MIT
//
// Each exit code of ins-setup, forced for real, in each way in which it can be asked to speak.
#include "SetupRig.h"

#include <algorithm>
#include <ostream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

namespace {

using ::testing::AllOf;
using ::testing::Combine;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::ValuesIn;
using Json = nlohmann::json;

enum class Way { Text, Quiet, Object, Events, Descriptor };

struct Mode {
    Way way;
    const char* name;
    const char* option;
};

const std::vector<Mode> modes = {
    {Way::Text, "Text", ""},
    {Way::Quiet, "Quiet", "--quiet"},
    {Way::Object, "Json", "--json"},
    {Way::Events, "Events", "--json-events"},
    {Way::Descriptor, "Descriptor", "--progress-fd 3"},
};

struct Force {
    const char* name;
    int exitCode;
    const char* result; ///< the word for it
    const char* given;  ///< what is done before
    const char* line;   ///< with MODE where the way to speak is said
    const char* after = ":";
    bool isQuestion = false; ///< `status` and `restore` answer as text or as one object
};

// Sent once the command of the script runs; the background shell's own exit code is the program's.
#define STOPPED_BY(SIGNAL)                                                                         \
    "SETUP install MODE --kit KIT & n=0; until [ -e TREE/started ] || [ $((n += 1)) -gt 3000 ]; "  \
    "do sleep 0.01; done; kill -" SIGNAL " $!; wait $!"

constexpr const char* runsLong =
    "sed -i '/^directory=create,.etc/i process=start,touch TREE/started; sleep 60' KIT/install.ini";
constexpr const char* withService =
    "sed -i '/^.remove/i service=install,$serviceName$\\nservice=start,$serviceName$' "
    "KIT/install.ini; sed -i '/^.remove/a service=remove,$serviceName$' KIT/install.ini";
constexpr const char* takesServiceAway =
    "systemctl stop setuptest; systemctl disable setuptest; "
    "rm -f /etc/systemd/system/setuptest.service; systemctl daemon-reload; "
    "systemctl reset-failed setuptest";

const std::vector<Force> forces = {
    {"Installed", 0, "done", ":", "SETUP install MODE --kit KIT"},
    {"Removed", 0, "done", "SETUP install --kit KIT", "SETUP remove MODE --kit KIT"},
    {"NothingToRemove", 0, "done", ":", "SETUP remove MODE --kit KIT"},
    {"IsInstalled", 0, "done", "SETUP install --kit KIT", "SETUP status MODE --kit KIT", ":", true},
    {"Restored",
     0,
     "done",
     "SETUP install --kit KIT; SETUP install --backup --kit KIT",
     "SETUP restore MODE --kit KIT",
     ":",
     true},
    {"AMissingFile", 1, "failed", "rm KIT/lib/svc", "SETUP install --no-check MODE --kit KIT"},
    {"ARemovalThatLeavesTheLink",
     1,
     "failed",
     "SETUP install --kit KIT; sed -i '/^file=delete/d;/delete,.etc/d' KIT/install.ini",
     "SETUP remove MODE --kit KIT"},
    {"NotInstalled", 3, "not installed", ":", "SETUP status MODE --kit KIT", ":", true},
    {"ChangedFile",
     4,
     "differs",
     "SETUP install --kit KIT; echo more >> TREE/product/lin/x86_64/svc",
     "SETUP status --verify MODE --kit KIT",
     ":",
     true},
    {"UnknownOption", 64, "refused", ":", "SETUP install MODE --kit KIT --quickly"},
    {"PathOfTheSystem", 64, "refused", ":", "SETUP install MODE --kit KIT /usr"},
    {"OlderVersion",
     64,
     "refused",
     "SETUP install --kit KIT; sed -i s/1.5/1.4/ KIT/product.ini",
     "SETUP install MODE --kit KIT"},
    {"WrongScript",
     65,
     "refused",
     "sed -i s/^directory=create/directory=make/ KIT/install.ini",
     "SETUP install MODE --kit KIT"},
    {"MalformedLine",
     65,
     "refused",
     "sed -i '/^file=copy/i file=copy,a' KIT/install.ini",
     "SETUP install --no-check MODE --kit KIT"},
    {"BrokenSeal",
     65,
     "refused",
     "SETUP kit seal --kit KIT; echo more >> KIT/lib/svc",
     "SETUP install MODE --kit KIT"},
    {"NoKit", 66, "refused", ":", "SETUP install MODE --kit /nowhere"},
    {"KitOfOthers", 66, "refused", "chmod o+w KIT", "SETUP install MODE --kit KIT"},
    {"NoManifest",
     66,
     "refused",
     "SETUP install --kit KIT; rm /var/lib/ins++/setuptest/manifest",
     "SETUP status --verify MODE --kit KIT",
     ":",
     true},
    {"NoServiceManager",
     69,
     "refused",
     withService,
     "mv /run/systemd/system /run/systemd/hidden; SETUP install MODE --kit KIT; code=$?; "
     "mv /run/systemd/hidden /run/systemd/system; exit $code"},
    {"ServiceThatEnds",
     69,
     "failed",
     "printf '#!/bin/sh\\nexit 3\\n' > KIT/lib/svc",
     "SETUP install MODE --kit KIT",
     takesServiceAway},
    // A stack that has no room in any address space: no second thread begins.
    {"NoThread", 70, "refused", ":", "ulimit -s 100000000000 && SETUP install MODE --kit KIT"},
    // In a mount namespace of its own, which ends with the shell.
    {"NoDevices",
     70,
     "refused",
     ":",
     "unshare -m sh -c 'mount -t tmpfs none /dev && exec SETUP install MODE --kit KIT <&-'"},
    {"TargetThatIsReadOnly",
     73,
     "refused",
     "mkdir TREE/product; mount -t tmpfs -o ro none TREE/product",
     "SETUP install MODE --kit KIT",
     "umount TREE/product"},
    {"NoSpace",
     73,
     "refused",
     "mkdir TREE/product; mount -t tmpfs -o size=1m none TREE/product",
     "SETUP install MODE --kit KIT",
     "umount TREE/product"},
    {"NoSpaceAllOfASudden",
     73,
     "failed",
     "mkdir TREE/product; mount -t tmpfs -o size=16m none TREE/product; "
     "sed -i '/^directory=create,.etc/i process=start,cat /dev/zero > TREE/product/all\\n"
     "file=copy,svc,$pathSource$lib,$pathTargetConfig$' KIT/install.ini",
     "SETUP install MODE --kit KIT",
     "umount TREE/product"},
    {"AnotherRun",
     75,
     "refused",
     ":",
     "flock /run/lock/ins++-setuptest.lock SETUP install MODE --kit KIT"},
    {"NotRoot",
     77,
     "refused",
     ":",
     "setpriv --reuid 65534 --regid 65534 --clear-groups SETUP install MODE --kit KIT"},
    {"NotRootToRestore",
     77,
     "refused",
     ":",
     "setpriv --reuid 65534 --regid 65534 --clear-groups SETUP restore MODE --kit KIT",
     ":",
     true},
    {"HangUp", 129, "cancelled", runsLong, STOPPED_BY("HUP")},
    {"Interrupt", 130, "cancelled", runsLong, STOPPED_BY("INT")},
    {"Terminate", 143, "cancelled", runsLong, STOPPED_BY("TERM")},
};

std::ostream& operator<<(std::ostream& out, const Force& force) {
    return out << force.name;
}
std::ostream& operator<<(std::ostream& out, const Mode& mode) {
    return out << mode.name;
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// Parsed as it stands; an object that is none is a failure of the test.
Json ParsedLine(const std::string& line) {
    Json object = Json::parse(line, nullptr, false);
    EXPECT_TRUE(object.is_object()) << line;
    return object.is_object() ? object : Json::object();
}

void ExpectAnswer(const Json& answer, const Force& force) {
    EXPECT_EQ(answer.value("schema", 0), 1) << answer;
    EXPECT_EQ(answer.value("exitCode", -1), force.exitCode) << answer;
    EXPECT_EQ(answer.value("result", ""), force.result) << answer;
    const std::string line = force.line;
    const auto is = [&](const char* command) {
        return line.find(std::string("SETUP ") + command + " ") != std::string::npos;
    };
    const char* command = is("install")  ? "install"
                          : is("remove") ? "remove"
                          : is("status") ? "status"
                                         : "restore";
    EXPECT_EQ(answer.value("command", ""), command) << answer;
    const bool isTrouble = force.exitCode != 0 && force.exitCode != 3 && force.exitCode != 4;
    EXPECT_EQ(answer.contains("error"), isTrouble) << answer;
    if (isTrouble) {
        EXPECT_THAT(answer["error"].value("text", ""), Not(IsEmpty()));
    }
}

/// One object a line; the last, and only it, is the result.
void ExpectEvents(const std::string& text, const Force& force) {
    ASSERT_THAT(text, AllOf(Not(IsEmpty()), testing::EndsWith("\n")));
    const std::vector<std::string> lines = LinesOf(text);
    int reached = 0;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const Json event = ParsedLine(lines[index]);
        const bool isLast = index + 1 == lines.size();
        EXPECT_EQ(event.value("event", "") == "result", isLast) << event;
        EXPECT_EQ(event.value("event", "") == "start", index == 0 && !isLast) << event;
        if (event.contains("percentage")) {
            const int percentage = event["percentage"].get<int>();
            EXPECT_GE(percentage, reached) << text;
            reached = percentage;
            const bool mayBeAll = isLast && event.value("result", "") == "done";
            EXPECT_LE(percentage, mayBeAll ? 100 : 99) << text;
        }
        if (isLast) {
            ExpectAnswer(event, force);
            EXPECT_EQ(event.value("percentage", -1) == 100, force.exitCode == 0) << event;
        }
    }
}

class SetupExitCodeTest : public KTEST::SetupProgramTest,
                          public ::testing::WithParamInterface<std::tuple<Force, Mode>> {
  protected:
    const Force force = std::get<0>(GetParam());
    const Mode mode = std::get<1>(GetParam());
};

TEST_P(SetupExitCodeTest, IsAnsweredAndTold) {
    ASSERT_EQ(Run(force.given).exitCode, 0);
    if (std::string(force.name) == "ServiceThatEnds") {
        ASSERT_EQ(Run(withService).exitCode, 0);
    }
    const Outcome told =
        Run("exec 3> TREE/events; " + KTEST::Replaced(force.line, "MODE", mode.option));
    Run(force.after);

    EXPECT_EQ(told.exitCode, force.exitCode) << told.out << told.err;
    const bool isAnswer = force.exitCode == 0 || force.exitCode == 3 || force.exitCode == 4;
    if (isAnswer) {
        EXPECT_THAT(told.err, IsEmpty());
    } else {
        EXPECT_THAT(told.err, Not(IsEmpty())); // in every way, for whoever looks for trouble
    }
    EXPECT_EQ((told.out + told.err).find_first_of("\r\x1b"), std::string::npos);
    const std::string events = tree.Read("events");
    switch (mode.way) {
    case Way::Text:
        EXPECT_THAT(told.out, Not(HasSubstr("{\"")));
        EXPECT_EQ(told.out.empty(), !isAnswer && std::string(force.result) == "refused");
        break;
    case Way::Quiet:
        EXPECT_THAT(told.out, IsEmpty());
        break;
    case Way::Object:
        ASSERT_EQ(LinesOf(told.out).size(), 1U) << told.out;
        ExpectAnswer(ParsedLine(told.out), force);
        break;
    case Way::Events:
        ExpectEvents(told.out, force);
        break;
    case Way::Descriptor:
        EXPECT_THAT(told.out, Not(HasSubstr("{\"")));
        ExpectEvents(events, force);
        break;
    }
    if (mode.way != Way::Descriptor) {
        EXPECT_THAT(events, IsEmpty());
    }
}

std::vector<Force> Those(bool questions) {
    std::vector<Force> those;
    std::copy_if(forces.begin(), forces.end(), std::back_inserter(those), [&](const Force& one) {
        return one.isQuestion == questions;
    });
    return those;
}

std::vector<Mode> WaysToAnswer() {
    return {modes[0], modes[2]};
}

const auto nameOfPair = [](const auto& each) {
    return std::string(std::get<0>(each.param).name) + std::get<1>(each.param).name;
};

INSTANTIATE_TEST_SUITE_P(
    Runs, SetupExitCodeTest, Combine(ValuesIn(Those(false)), ValuesIn(modes)), nameOfPair
);
INSTANTIATE_TEST_SUITE_P(
    Questions,
    SetupExitCodeTest,
    Combine(ValuesIn(Those(true)), ValuesIn(WaysToAnswer())),
    nameOfPair
);

using SetupExitCodesHelpTest = KTEST::SetupProgramTest;

TEST_F(SetupExitCodesHelpTest, HelpNamesEachCodeThatIsForced) {
    const std::string help = Run("SETUP --help").out;
    const std::string codes = help.substr(std::min(help.find("Exit codes:"), help.size()));
    for (const Force& force : forces) {
        EXPECT_THAT(
            codes, testing::ContainsRegex("[ \n]" + std::to_string(force.exitCode) + "[ ,]")
        ) << force.name;
    }
}

} // namespace
