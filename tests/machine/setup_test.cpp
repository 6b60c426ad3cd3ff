// SPDX-License-Identifier: MIT
//
// What whole runs of ins-setup in tests/cases/setup cannot show: a terminal, and a service of the
// machine's own systemd.
#include "../support/NameOfRow.h"
#include "SetupRig.h"

#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using Json = nlohmann::json;

using KTEST::SetupProgramTest;

TEST_F(SetupProgramTest, ATerminalGetsTwoLinesThatAreDrawnOver) {
    const Outcome installed = Run("TERM=xterm script -qec 'SETUP install --kit KIT' /dev/null");
    EXPECT_EQ(installed.exitCode, 0);
    EXPECT_THAT(installed.out, HasSubstr("[6/6] "));
    EXPECT_THAT(installed.out, HasSubstr("\r\x1B[A")); // up to the bar again
    const std::string last = installed.out.substr(installed.out.rfind("\x1B[A"));
    EXPECT_THAT(last, HasSubstr("100%"));
    EXPECT_THAT(last, Not(HasSubstr("[6/6] "))); // no rule stays below a bar that is full
}

struct Way {
    const char* name;
    const char* option;
    const char* stream; ///< where the answer is looked for, below the tree; "" for none
};

std::ostream& operator<<(std::ostream& out, const Way& way) {
    return out << way.name;
}

/// A service that ends at once is a failure of its own.
class SetupServiceThatEndsTest : public SetupProgramTest,
                                 public ::testing::WithParamInterface<Way> {
  protected:
    SetupServiceThatEndsTest() {
        tree.Write("kit/lib/svc", "#!/bin/sh\nexit 3\n", 0755);
        std::string script = tree.Read("kit/install.ini");
        script.insert(
            script.find("[remove]"), "service=install,$serviceName$\nservice=start,$serviceName$\n"
        );
        tree.Write("kit/install.ini", script + "service=remove,$serviceName$\n");
    }
    ~SetupServiceThatEndsTest() override {
        Run("systemctl stop setuptest; systemctl disable setuptest; "
            "rm -f /etc/systemd/system/setuptest.service; systemctl daemon-reload; "
            "systemctl reset-failed setuptest");
    }
    /// The last line of a stream, which is the answer.
    Json Answer() const {
        const std::string text = tree.Read(GetParam().stream);
        const std::size_t end = text.find_last_not_of('\n');
        return Json::parse(text.substr(text.rfind('\n', end) + 1), nullptr, false);
    }
};

TEST_P(SetupServiceThatEndsTest, EndsTheRunWith69) {
    const Outcome failed =
        Run(std::string("SETUP install ") + GetParam().option + " --kit KIT 3> TREE/events");
    EXPECT_EQ(failed.exitCode, 69) << failed.out << failed.err;
    EXPECT_THAT(failed.err, HasSubstr("\nError 182: setuptest.service: it "));
    if (*GetParam().stream == '\0') {
        EXPECT_THAT(failed.out, Not(HasSubstr("{\"")));
        return;
    }
    const Json answer = Answer();
    ASSERT_TRUE(answer.is_object()) << failed.out;
    EXPECT_EQ(answer.value("result", ""), "failed");
    EXPECT_EQ(answer.value("exitCode", 0), 69);
    EXPECT_EQ(answer["error"].value("code", 0), 182);
}

INSTANTIATE_TEST_SUITE_P(
    Told,
    SetupServiceThatEndsTest,
    ::testing::Values(
        Way{"InWords", "", ""},
        Way{"Quietly", "--quiet", ""},
        Way{"AsAnObject", "--json", "out"},
        Way{"AsEvents", "--json-events", "out"},
        Way{"AsEventsBeside", "--progress-fd 3", "events"}
    ),
    KTEST::NameOfRow()
);

/// Others compare whole machines: they rely on this.
TEST(MachineTreeTest, ShowsEachKindOfChange) {
    KTEST::TemporaryTree tree;
    tree.Write("file", "text");
    tree.Link("link", "file");
    tree.Directory("empty");
    const std::vector<std::string> roots = {tree.Path()};
    std::vector<std::string> before = KTEST::MachineTree(roots);
    const auto changes = [&] {
        std::vector<std::string> after = KTEST::MachineTree(roots);
        const std::size_t count = KTEST::Changes(before, after).size();
        before = after;
        return count;
    };
    EXPECT_EQ(changes(), 0U);
    tree.Write("file", "Text");
    EXPECT_EQ(changes(), 2U);
    tree.SetMode("empty", 0700);
    EXPECT_EQ(changes(), 2U);
    tree.Remove("link");
    tree.Link("link", "other");
    EXPECT_EQ(changes(), 2U);
    tree.SetOwner("file", 1, 1);
    EXPECT_EQ(changes(), 2U);
    tree.Write("new", "");
    EXPECT_EQ(changes(), 1U);
}

} // namespace
