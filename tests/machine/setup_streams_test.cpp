// SPDX-License-Identifier: MIT
//
// ins-setup where its standard streams are closed or full, where paths hold what shells trip over,
// beside other products, and what the journal keeps.
#include "../support/NameOfRow.h"
#include "SetupRig.h"

#include <filesystem>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Json = nlohmann::json;

std::vector<Json> ObjectsOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<Json> objects;
    for (std::string line; std::getline(stream, line);) {
        objects.push_back(Json::parse(line, nullptr, false));
        EXPECT_TRUE(objects.back().is_object()) << line;
    }
    return objects;
}

constexpr const char* questions[] = {
    "status --kit KIT",
    "status --json --kit KIT",
    "check --kit KIT",
    "check --json --kit KIT",
    "plan install --kit KIT",
    "plan install --json --kit KIT",
    "plan remove --kit KIT",
    "macros --kit KIT",
    "macros --json --kit KIT"};

using SetupAnswersTest = KTEST::SetupProgramTest;

TEST_F(SetupAnswersTest, AnAnswerThatIsLostIsNoAnswer) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    for (const std::string question : questions) {
        const Outcome lost = Run("SETUP " + question + " > /dev/full");
        EXPECT_EQ(lost.exitCode, 73) << question;
        EXPECT_EQ(
            lost.err,
            "ins-setup: the answer could not be written. Make room where standard output leads to, "
            "or lead it elsewhere.\n"
        ) << question;
    }
}

TEST_F(SetupAnswersTest, AReaderThatHasReadEnoughIsNoMistake) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    for (const std::string question : questions) {
        // The descriptor of a pipe whose reader has gone before the first byte.
        const Outcome read =
            Run("mkfifo TREE/pipe; true < TREE/pipe & exec 3> TREE/pipe; wait $!; SETUP " +
                question + " >&3; code=$?; rm TREE/pipe; exit $code");
        EXPECT_EQ(read.exitCode, 0) << question << read.err;
        EXPECT_THAT(read.err, IsEmpty()) << question;
    }
}

struct Streams {
    const char* name;
    const char* redirection;
};

std::ostream& operator<<(std::ostream& out, const Streams& streams) {
    return out << streams.name;
}

class SetupStreamsTest : public KTEST::SetupProgramTest,
                         public ::testing::WithParamInterface<Streams> {};

TEST_P(SetupStreamsTest, ARunIsWholeWhoeverListens) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    const std::vector<std::string> roots = {
        tree.Path("product"), "/etc/setuptest", "/var/lib/ins++/setuptest", tree.Path("kit")};
    const std::vector<std::string> undisturbed = KTEST::MachineTree(roots);
    for (const char* way : {"", "--quiet", "--json", "--json-events", "--progress-fd 2"}) {
        SCOPED_TRACE(way);
        Forget();
        tree.Remove("product");
        const std::string rest = std::string(" ") + way + " --kit KIT " + GetParam().redirection;
        EXPECT_EQ(Run("SETUP install" + rest).exitCode, 0);
        EXPECT_THAT(KTEST::Changes(undisturbed, KTEST::MachineTree(roots)), IsEmpty());
        // Nothing of what was said went into a file that was opened in a stream's place.
        EXPECT_EQ(KTEST::Slurp(setupLog).find("[1/6]"), std::string::npos);
        EXPECT_EQ(KTEST::Slurp(setupLog).find("{\""), std::string::npos);
        EXPECT_EQ(Run("SETUP remove" + rest).exitCode, 0);
        EXPECT_FALSE(tree.Exists("product"));
    }
}

TEST_P(SetupStreamsTest, AFailureKeepsItsExitCode) {
    fs::remove(tree.Path("kit/lib/svc"));
    const std::string rest = std::string(" --kit KIT ") + GetParam().redirection;
    EXPECT_EQ(Run("SETUP install --no-check" + rest).exitCode, 1);
    EXPECT_EQ(Run("SETUP install" + rest).exitCode, 65);
}

INSTANTIATE_TEST_SUITE_P(
    That,
    SetupStreamsTest,
    ::testing::Values(
        Streams{"ClosedInput", "<&-"},
        Streams{"ClosedOutput", ">&-"},
        Streams{"ClosedErrors", "2>&-"},
        Streams{"ClosedOutputs", ">&- 2>&-"},
        Streams{"AllClosed", "<&- >&- 2>&-"},
        Streams{"FullOutput", "> /dev/full"},
        Streams{"FullOutputs", "> /dev/full 2> /dev/full"},
        Streams{"DirectoryAsInput", "< /"}
    ),
    KTEST::NameOfRow()
);

struct Place {
    const char* name;
    const char* directory;
};

std::ostream& operator<<(std::ostream& out, const Place& place) {
    return out << place.name;
}

class SetupPlacesTest : public KTEST::SetupProgramTest,
                        public ::testing::WithParamInterface<Place> {};

TEST_P(SetupPlacesTest, AKitAndAProductLieThereAsAnywhere) {
    const std::string kit = tree.Path(GetParam().directory);
    const std::string target = tree.Path(std::string("to/") + GetParam().directory);
    fs::create_directories(kit);
    fs::copy(tree.Path("kit"), kit, fs::copy_options::recursive);
    const std::string words = " --kit " + KTEST::Quoted(kit);
    EXPECT_EQ(Run("SETUP check" + words).exitCode, 0);
    EXPECT_EQ(Run("SETUP kit seal" + words).exitCode, 0);
    const Outcome installed =
        Run("SETUP install --json" + words + " " + KTEST::Quoted(target) + "/");
    EXPECT_EQ(installed.exitCode, 0) << installed.err;
    const std::vector<Json> answers = ObjectsOf(installed.out);
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers.front().value("productPath", ""), target + "/");
    EXPECT_EQ(KTEST::Slurp(target + "/lin/x86_64/svc"), "program");
    EXPECT_EQ(fs::read_symlink("/etc/setuptest/setuptest").string(), target + "/lin/x86_64/svc");
    EXPECT_EQ(Run("SETUP status --verify" + words).exitCode, 0);
    // With the kit as the directory that the call is made in, too.
    EXPECT_EQ(Run("cd " + KTEST::Quoted(kit) + " && SETUP install --kit .").exitCode, 0);
    EXPECT_EQ(Run("SETUP remove" + words).exitCode, 0);
    EXPECT_FALSE(fs::exists(target));
}

INSTANTIATE_TEST_SUITE_P(
    With,
    SetupPlacesTest,
    ::testing::Values(
        Place{"Blanks", "a kit  of mine "},
        Place{"Letters", "Käse-日本-\U0001F600"},
        Place{"Quotes", "it's a \"kit\""},
        Place{"ShellLetters", "a;b&c(d)|e*?[x]`f`"},
        Place{"LeadingDash", "-q"}
    ),
    KTEST::NameOfRow()
);

/// A second product beside the rig's.
class SetupTwoProductsTest : public KTEST::SetupProgramTest {
  protected:
    SetupTwoProductsTest() {
        fs::copy(tree.Path("kit"), tree.Path("second"), fs::copy_options::recursive);
        tree.Write(
            "second/product.ini",
            "[product]\nname=Second Test\nserviceName=secondtest\niniFile=second.ini\n"
            "version=3.0\n"
        );
        tree.Write(
            "second/install.ini",
            KTEST::Replaced(tree.Read("kit/install.ini"), tree.Path("product"), tree.Path("beside"))
        );
    }
    ~SetupTwoProductsTest() override {
        fs::remove_all("/etc/secondtest");
        fs::remove_all("/var/lib/ins++/secondtest");
        fs::remove("/var/log/Second Test Setup Log.txt");
        fs::remove("/var/log/Second Test Setup Commands.txt");
    }
};

TEST_F(SetupTwoProductsTest, RunsOfTwoProductsDoNotHinderEachOther) {
    // The first one waits in its middle until the second one has been installed and removed.
    GivenScript(
        "process=start,touch " + tree.Path("started") + "; n=0; until [ -e " + tree.Path("go") +
        " ] || [ $((n += 1)) -gt 1000 ]; do sleep 0.01; done\n"
    );
    const Outcome both =
        Run("SETUP install --quiet --kit KIT & n=0; "
            "until [ -e TREE/started ] || [ $((n += 1)) -gt 3000 ]; do sleep 0.01; done; "
            "SETUP install --quiet --kit TREE/second; echo second $?; "
            "SETUP status --kit TREE/second; SETUP remove --yes --quiet --kit TREE/second; "
            "echo removed $?; SETUP install --quiet --kit KIT; echo same $?; "
            "touch TREE/go; wait $!; echo first $?");
    EXPECT_EQ(
        both.out,
        "second 0\nSecond Test 3.0 (build 0) is installed in " + tree.Path("beside") +
            ".\nremoved 0\nsame 75\nfirst 0\n"
    );
    EXPECT_EQ(RunSetup("status").exitCode, 0);
}

TEST_F(SetupTwoProductsTest, ASecondKitOfTheSameProductWaitsForItsTurn) {
    tree.Write("second/product.ini", product);
    const Outcome refused =
        Run("flock /run/lock/ins++-setuptest.lock SETUP install --kit TREE/second");
    EXPECT_EQ(refused.exitCode, 75);
    EXPECT_EQ(Run("SETUP install --kit TREE/second").exitCode, 0);
}

TEST_F(SetupTwoProductsTest, OfTwentyAtOnceEachIsDoneOrRefused) {
    GivenScript("process=start,sleep 1\n");
    const Outcome all =
        Run("for i in $(seq 20); do SETUP install --quiet --kit KIT 2>> TREE/words & "
            "jobs=\"$jobs $!\"; done; for job in $jobs; do wait $job; echo $?; done > TREE/codes; "
            "sort TREE/codes | uniq -c");
    // A command of a second holds all others off, save one that comes when it is over.
    std::istringstream counts(all.out);
    int done = 0;
    int refused = 0;
    for (int count = 0, code = 0; counts >> count >> code;) {
        EXPECT_TRUE(code == 0 || code == 75) << code;
        (code == 0 ? done : refused) += count;
    }
    EXPECT_GE(done, 1);
    EXPECT_GE(refused, 1);
    EXPECT_EQ(done + refused, 20) << all.out;
    EXPECT_EQ(RunSetup("status", "--verify").exitCode, 0);
}

class SetupJournalTest : public KTEST::SetupProgramTest {
  protected:
    /// The entries of the runs of one version, in their order.
    std::vector<Json> Entries(const std::string& version) {
        return ObjectsOf(
            Run("journalctl --sync; journalctl -q -o json INSPP_VERSION=" + version).out
        );
    }
    void GivenVersion(const std::string& version) {
        tree.Write("kit/product.ini", KTEST::Replaced(product, "1.5", version));
    }
    void
    ExpectEntry(const Json& entry, const char* command, const char* result, const char* level) {
        EXPECT_EQ(entry.value("INSPP_COMMAND", ""), command);
        EXPECT_EQ(entry.value("INSPP_RESULT", ""), result);
        EXPECT_EQ(entry.value("PRIORITY", ""), level);
        EXPECT_EQ(entry.value("INSPP_PRODUCT", ""), "Setup Test");
        EXPECT_EQ(entry.value("INSPP_PRODUCT_PATH", ""), tree.Path("product"));
        EXPECT_EQ(entry.value("SYSLOG_IDENTIFIER", ""), "ins-setup");
    }
};

TEST_F(SetupJournalTest, GetsOneEntryForTheStartAndOneForTheEnd) {
    GivenVersion("71.1");
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    ASSERT_EQ(RunSetup("remove").exitCode, 0);
    const std::vector<Json> entries = Entries("71.1");
    ASSERT_EQ(entries.size(), 4U);
    ExpectEntry(entries[0], "install", "started", "6");
    ExpectEntry(entries[1], "install", "done", "6");
    ExpectEntry(entries[2], "remove", "started", "6");
    ExpectEntry(entries[3], "remove", "done", "6");
    EXPECT_THAT(entries[1].value("MESSAGE", ""), HasSubstr("End install of Setup Test 71.1"));
}

TEST_F(SetupJournalTest, GetsNoWarningInTheWholeLifeOfAProduct) {
    GivenVersion("71.9");
    const auto warnings = [this] {
        return Run("journalctl --sync; journalctl -q -o cat -p warning -t ins-setup").out;
    };
    const std::string before = warnings();
    ASSERT_EQ(RunSetup("status").exitCode, 3);
    ASSERT_EQ(RunSetup("plan install").exitCode, 0);
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    ASSERT_EQ(RunSetup("status", "--verify").exitCode, 0);
    ASSERT_EQ(RunSetup("remove").exitCode, 0);
    ASSERT_EQ(RunSetup("remove").exitCode, 0);
    EXPECT_EQ(warnings(), before);
}

TEST_F(SetupJournalTest, GetsAFailureWithItsReason) {
    GivenVersion("71.2");
    fs::remove(tree.Path("kit/lib/svc"));
    ASSERT_EQ(RunSetup("install", "--no-check").exitCode, 1);
    const std::vector<Json> entries = Entries("71.2");
    ASSERT_EQ(entries.size(), 2U);
    ExpectEntry(entries[0], "install", "started", "6");
    ExpectEntry(entries[1], "install", "failed", "3");
    EXPECT_THAT(
        entries[1].value("INSPP_ERROR", ""), HasSubstr("cannot read " + tree.Path("kit/lib/svc"))
    );
}

TEST_F(SetupJournalTest, GetsARunThatWasStopped) {
    GivenVersion("71.3");
    GivenScript("process=start,touch " + tree.Path("started") + "; sleep 60\n");
    ASSERT_EQ(
        Run("SETUP install --kit KIT & n=0; until [ -e TREE/started ] || [ $((n += 1)) -gt 3000 ]; "
            "do sleep 0.01; done; kill -TERM $!; wait $!")
            .exitCode,
        143
    );
    const std::vector<Json> entries = Entries("71.3");
    ASSERT_EQ(entries.size(), 2U);
    ExpectEntry(entries[1], "install", "cancelled", "6");
}

TEST_F(SetupJournalTest, GetsNothingOfARefusal) {
    GivenVersion("71.4");
    fs::remove(tree.Path("kit/lib/svc"));
    ASSERT_EQ(RunSetup("install").exitCode, 65);
    EXPECT_THAT(Entries("71.4"), IsEmpty());
}

} // namespace
