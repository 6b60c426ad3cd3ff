// SPDX-License-Identifier: MIT
//
// KUtil::KillProcess with scripts, which are run by a program of another name.
#include "../../support/NameOfRow.h"
#include "ProcessFixture.h"

#include <sup++/KUtil.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include <unistd.h>

namespace KTEST {
namespace {

namespace fs = std::filesystem;
using KSUP::KUtil;

/// How a script is run; "@" stands for its path.
struct Way {
    const char* name;
    const char* firstLine;
    std::vector<std::string> words; ///< empty: as a program
};

class KillProcessScriptFixture : public ProcessTest {
  protected:
    KillProcessScriptFixture() { tree.Fifo("gate"); }

    /// A script that waits for ever without a further process, under a name of its own.
    std::string GivenScript(const std::string& firstLine) {
        const std::string path = GivenProgram("script");
        const bool isPerl = firstLine.find("perl") != std::string::npos;
        const std::string shell = "read line <" + tree.Path("gate") + "\n";
        tree.Write(NameOf(path), firstLine + "\n" + (isPerl ? "sleep 1000;\n" : shell), 0755);
        return path;
    }
    pid_t StartScript(const std::string& path, const Way& way) {
        if (way.words.empty()) {
            return Start(path, {"argument"});
        }
        std::vector<std::string> words = way.words;
        for (std::string& word : words) {
            word = word == "@" ? path : word;
        }
        return Start(words.front(), {words.begin() + 1, words.end()});
    }
    /// A program that was just started has no arguments for a moment, and env is what runs for a
    /// moment before the interpreter does.
    static void WaitUntilItRuns(pid_t process, const std::string& former = "env") {
        const std::string proc = "/proc/" + std::to_string(process);
        WaitUntil([&] {
            return fs::read_symlink(proc + "/exe").filename() != former &&
                   std::ifstream(proc + "/cmdline").get() != EOF;
        });
    }
    /// Ended by SIGTERM, or still there; whichever it is, it is gone afterwards.
    bool WasEnded(pid_t process) {
        const bool ended = !IsAlive(process);
        ::kill(process, SIGKILL);
        return EndOf(process) == 128 + SIGTERM && ended;
    }
};

class KillProcessScriptTest : public KillProcessScriptFixture,
                              public testing::WithParamInterface<Way> {};

TEST_P(KillProcessScriptTest, IsFoundByPathAndByName) {
    for (const bool byPath : {true, false}) {
        const std::string script = GivenScript(GetParam().firstLine);
        const std::string other = GivenScript(GetParam().firstLine);
        const pid_t wanted = StartScript(script, GetParam());
        const pid_t spared = StartScript(other, GetParam());
        WaitUntilItRuns(wanted);
        WaitUntilItRuns(spared);
        KUtil::KillProcess(byPath ? script : NameOf(script), longTime);
        EXPECT_TRUE(WasEnded(wanted)) << byPath;
        EXPECT_FALSE(WasEnded(spared)) << byPath;
    }
}

INSTANTIATE_TEST_SUITE_P(
    RunBy,
    KillProcessScriptTest,
    testing::Values(
        Way{"AShell", "#!/bin/sh", {}},
        Way{"AShellBehindABlank", "#! /bin/sh", {}},
        Way{"AShellWithAnOption", "#!/bin/sh -e", {}},
        Way{"AnotherShell", "#!/bin/bash", {}},
        Way{"Env", "#!/usr/bin/env sh", {}},
        Way{"EnvOfAPath", "#!/usr/bin/env /bin/sh", {}},
        Way{"EnvWithAVariable", "#!/usr/bin/env -S x=1 sh -e", {}},
        Way{"EnvWithWords", "#!/usr/bin/env -S perl -w", {}},
        Way{"NoShell", "#!/usr/bin/perl", {}},
        Way{"NoShellWithAnOption", "#!/usr/bin/perl -w", {}},
        Way{"AShellByHand", "#!/bin/sh", {"/bin/sh", "@", "argument"}},
        Way{"AShellByHandWithAnOption", "#!/bin/sh", {"/bin/sh", "-e", "@"}},
        Way{"AShellThatItDoesNotName", "#!/bin/sh", {"/bin/bash", "@"}},
        Way{"AShellWhereItNamesNone", "# no interpreter", {"/bin/sh", "@"}},
        Way{"AnInterpreterByHand", "#!/usr/bin/perl", {"/usr/bin/perl", "-w", "@"}}
    ),
    NameOfRow()
);

class KillProcessBystanderTest : public KillProcessScriptFixture,
                                 public testing::WithParamInterface<Way> {};

TEST_P(KillProcessBystanderTest, Survives) {
    for (const bool byPath : {true, false}) {
        const std::string script = GivenScript(GetParam().firstLine);
        const pid_t process = StartScript(script, GetParam());
        WaitUntilItRuns(process);
        KUtil::KillProcess(byPath ? script : NameOf(script), longTime);
        EXPECT_FALSE(WasEnded(process)) << byPath;
    }
}

INSTANTIATE_TEST_SUITE_P(
    OneThat,
    KillProcessBystanderTest,
    testing::Values(
        Way{"ShowsTheScript", "#!/bin/sh", {"/usr/bin/tail", "--lines=0", "--follow", "@"}},
        Way{"IsGivenTheScript", "#!/bin/sh", {"/usr/bin/perl", "-e", "sleep 1000", "@"}},
        Way{"IsGivenTheScriptFirst", "# a text", {"/usr/bin/tail", "@", "--lines=0", "--follow"}},
        Way{"IsGivenAScriptOfItsOwn",
            "#!/usr/bin/perl",
            {"/usr/bin/perl", "-e", "sleep 1000", "@"}},
        Way{"HasItInACommand", "#!/bin/sh", {"/bin/sh", "-c", "read x <${0%/*}/gate", "@"}},
        Way{"IsNamedByNoScript", "#!/usr/bin/env", {"/usr/bin/tail", "--lines=0", "--follow", "@"}}
    ),
    NameOfRow()
);

class KillProcessScriptsTest : public KillProcessScriptFixture {};

/// As one file that is both a shell and an editor, which go by what they are called.
TEST_F(KillProcessScriptsTest, AProgramOfManyNamesIsTheInterpreterOnlyWhenCalledSo) {
    const std::string box = GivenProgram("box", "/usr/bin/perl");
    tree.Link("interpreter", NameOf(box));
    const std::string script = GivenScript("#!" + tree.Path("interpreter") + " -w perl");
    const pid_t interpreter = StartAs(box, tree.Path("interpreter"), {script});
    const pid_t editor = StartAs(box, "vi", {script});
    WaitUntilItRuns(interpreter);
    WaitUntilItRuns(editor);
    KUtil::KillProcess(script, longTime);
    EXPECT_TRUE(WasEnded(interpreter));
    EXPECT_FALSE(WasEnded(editor));
}

TEST_F(KillProcessScriptsTest, ARelativeNameMeansWhereTheProcessIs) {
    const std::string script = GivenScript("#!/bin/sh");
    tree.Directory("elsewhere");
    tree.Write("elsewhere/" + NameOf(script), tree.Read(NameOf(script)), 0755);
    const auto startIn = [&](const std::string& directory) {
        const pid_t process = Start(
            "/bin/bash", {"-c", "cd " + directory + "; exec ./" + NameOf(script) + " argument"}
        );
        WaitUntilItRuns(process, "bash");
        return process;
    };
    const pid_t wanted = startIn(tree.Path());
    const pid_t spared = startIn(tree.Path("elsewhere"));
    KUtil::KillProcess(script, longTime);
    EXPECT_TRUE(WasEnded(wanted));
    EXPECT_FALSE(WasEnded(spared));
}

TEST_F(KillProcessScriptsTest, AScriptThatWasReplacedIsFoundByPathAndByName) {
    for (const bool byPath : {true, false}) {
        const std::string script = GivenScript("#!/bin/sh");
        const pid_t process = Start(script);
        WaitUntilItRuns(process);
        fs::rename(GivenScript("#!/bin/sh"), script);
        KUtil::KillProcess(byPath ? script : NameOf(script), longTime);
        EXPECT_TRUE(WasEnded(process));
    }
}

TEST_F(KillProcessScriptsTest, ACommandOfAShellIsNoScript) {
    const std::string name = NameOf(GivenScript("#!/bin/sh"));
    tree.Remove(name);
    // The shell's first word behind the option is the name, but no file.
    const pid_t process =
        Start("/bin/bash", {"-c", name + "() { read x <" + tree.Path("gate") + "; }; " + name});
    WaitUntilItRuns(process);
    KUtil::KillProcess(name, longTime);
    EXPECT_FALSE(WasEnded(process));
}

} // namespace
} // namespace KTEST
