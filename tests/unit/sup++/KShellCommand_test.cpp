// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "KShellCommandFixture.h"

#include <csignal>
#include <type_traits>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KShellCommand;
using testing::EndsWith;
using testing::HasSubstr;

class KShellCommandTest : public KShellCommandFixture {};

TEST_F(KShellCommandTest, IsAThreadThatIsNotRunningUntilExecute) {
    const KShellCommand command;
    EXPECT_TRUE((std::is_base_of_v<KSUP::KThread, KShellCommand>));
    EXPECT_FALSE(std::is_copy_constructible_v<KShellCommand>);
    EXPECT_EQ(command.GetName(), "Shell command");
    EXPECT_FALSE(command.IsThreadActive());
    EXPECT_FALSE(command.IsTerminated());
}

TEST_F(KShellCommandTest, IsActiveFromExecuteUntilTheShellHasEnded) {
    tree.Fifo("gate");
    KShellCommand command;
    command.Execute("read line <" + tree.Path("gate") + "; echo through");
    EXPECT_TRUE(command.IsThreadActive());
    EXPECT_EQ(Output(), "");
    ::close(::open(tree.Path("gate").c_str(), O_WRONLY));
    WaitForEnd(command);
    EXPECT_EQ(Output(), "through\n");
    EXPECT_FALSE(command.IsTerminated()) << "nobody asked it to end";
}

TEST_F(KShellCommandTest, OutputAndErrorsGoToOneFileInTheirOrder) {
    EXPECT_EQ(OutputOf("echo one; echo two >&2; echo three"), "one\ntwo\nthree\n");
}

struct Text {
    const char* name;
    std::string text;
    std::string output;
};

class KShellCommandTextTest : public KShellCommandFixture,
                              public testing::WithParamInterface<Text> {};

TEST_P(KShellCommandTextTest, IsWhatTheShellMakesOfIt) {
    EXPECT_EQ(OutputOf(GetParam().text), GetParam().output);
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    KShellCommandTextTest,
    testing::Values(
        Text{"NoText", "", ""},
        Text{"Blanks", "   ", ""},
        Text{"Words", "printf '%s|' a  b", "a|b|"},
        Text{"BlanksInQuotes", "printf '%s|' 'a  b' \"c \" ' '", "a  b|c | |"},
        Text{"QuotesInQuotes", R"(printf '%s|' "it's" 'say "no"' \"\')", R"(it's|say "no"|"'|)"},
        Text{"ABackslash", R"(printf '%s|' 'a\b' "c\\d")", R"(a\b|c\d|)"},
        Text{"Dollars", "x=1; echo $x '$x' \"$x\" $#", "1 $x 1 0\n"},
        Text{"NewlinesBetweenCommands", "echo one\necho two", "one\ntwo\n"},
        Text{"NewlinesInQuotes", "echo 'one\ntwo'", "one\ntwo\n"},
        Text{"NewlinesAround", "\n\necho one\n\n", "one\n"},
        Text{"AHereDocument", "cat <<END\none\nEND\necho two", "one\ntwo\n"},
        Text{"AComment", "echo one # two", "one\n"},
        Text{"APipe", "echo one | tr o 0", "0ne\n"},
        Text{"AWildcard", "cd /; echo /de[v]/nul*", "/dev/null\n"},
        Text{"OtherBytes", "printf '%s' '\xc3\xa4 \xff'", "\xc3\xa4 \xff"},
        Text{
            "AnArgumentOf100000Bytes", "x=" + std::string(100000, 'y') + "; echo ${#x}", "100000\n"}
    ),
    NameOfRow()
);

TEST_F(KShellCommandTest, ATextThatLooksLikeAnOptionIsACommand) {
    EXPECT_THAT(OutputOf("-x"), EndsWith("-x: not found\n"));
}

TEST_F(KShellCommandTest, WhatIsNotFoundIsToldInTheOutputAndIsNoError) {
    EXPECT_THAT(OutputOf("no-such-program a b"), EndsWith("no-such-program: not found\n"));
}

TEST_F(KShellCommandTest, WhatTheShellCannotReadIsToldInTheOutputAndIsNoError) {
    EXPECT_THAT(OutputOf("echo 'one"), HasSubstr("nterminated quoted string"));
}

TEST_F(KShellCommandTest, HowTheShellEndsDoesNotMatter) {
    for (const char* text : {"true", "exit 3", "kill -9 $$", "no-such-program"}) {
        KShellCommand command;
        command.Execute(text);
        WaitForEnd(command);
        EXPECT_NO_THROW(command.CheckRunError()) << text;
    }
}

TEST_F(KShellCommandTest, TellsHowTheShellEndedToWhoAsks) {
    KShellCommand command;
    EXPECT_EQ(command.GetExitStatus(), -1) << "nothing has run";
    for (const auto& [text, status] :
         {std::pair("exit 3", 3), std::pair("true", 0), std::pair("kill -TERM $$", 143)}) {
        command.Execute(text);
        WaitForEnd(command);
        EXPECT_EQ(command.GetExitStatus(), status) << text;
    }
}

TEST_F(KShellCommandTest, WaitsForWhatTheShellWaitsFor) {
    EXPECT_EQ(OutputOf("(sleep 0.2; echo late) & wait; echo last"), "late\nlast\n");
}

TEST_F(KShellCommandTest, HasEndedWithTheShellThoughADaemonHoldsTheOutput) {
    pid_t daemon = 0;
    {
        KShellCommand command;
        command.Execute("sleep 1000 & echo $!");
        WaitForEnd(command);
        daemon = OutputNumber();
        command.Stop();
    }
    EXPECT_TRUE(IsAlive(daemon)) << "it is a stranger once the command has ended";
    EXPECT_EQ(LeftBehind::End(), 1);
}

TEST_F(KShellCommandTest, CanRunOneAfterTheOther) {
    KShellCommand command;
    for (const char* text : {"echo one", "echo two", "echo three"}) {
        command.Execute(text);
        WaitForEnd(command);
    }
    EXPECT_EQ(Output(), "one\ntwo\nthree\n");
}

TEST_F(KShellCommandTest, CannotRunTwoAtOnce) {
    KShellCommand command;
    ExecuteUntilReady(command, "echo $$; exec sleep 1000");
    const KError error = ErrorOf([&] { command.Execute("echo second"); });
    EXPECT_EQ(
        PlaceWithoutLine(error), R"(24 36.0 sup++/KShellCommand:? Execute "a command is running")"
    );
    EXPECT_TRUE(IsAlive(OutputNumber()));
    command.Stop();
    EXPECT_THAT(Output(), testing::Not(HasSubstr("second")));
}

TEST_F(KShellCommandTest, CommandsOfSeveralThreadsDoNotWaitForEachOther) {
    tree.Fifo("gate");
    KShellCommand first;
    KShellCommand second;
    first.Execute("read line <" + tree.Path("gate"));
    second.Execute("echo through >" + tree.Path("gate"));
    WaitForEnd(first);
    WaitForEnd(second);
}

TEST_F(KShellCommandTest, AGibibyteOfOutputIsNotHeldUp) {
    SetOutput(nullptr);
    Run("head -c 1073741824 /dev/zero && echo all >" + tree.Path("told"));
    EXPECT_EQ(tree.Read("told"), "all\n");
}

TEST_F(KShellCommandTest, MuchOutputIsKeptWhole) {
    Run("head -c 67108864 /dev/zero; echo >&2");
    EXPECT_EQ(tree.Status("output").st_size, 67108865);
}

TEST_F(KShellCommandTest, LeavesNoDescriptorAndNoChild) {
    const std::vector<int> before = OpenDescriptors();
    for (int number = 0; number < 100; ++number) {
        Run("true");
    }
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

// What a command is not given

TEST_F(KShellCommandTest, TheEnvironmentIsRootsOwn) {
    ::setenv("INSPP_TEST", "of the caller", 1);
    const std::string output = OutputOf("tr '\\0' '\\n' </proc/$$/environ");
    ::unsetenv("INSPP_TEST");
    EXPECT_EQ(output, "PATH=/usr/sbin:/usr/bin:/sbin:/bin\nHOME=/root\nLANG=C.UTF-8\n");
}

TEST_F(KShellCommandTest, TheUmaskIs022AndTheCallersStays) {
    const UmaskGuard callers(0137);
    EXPECT_EQ(OutputOf("umask"), "0022\n");
    EXPECT_EQ(::umask(0137), 0137U);
}

TEST_F(KShellCommandTest, TheDirectoryIsTheRoot) {
    EXPECT_EQ(
        InChild([&] {
            return ::chdir(tree.Path().c_str()) == 0 && OutputOf("pwd -P") == "/\n" ? 0 : 1;
        }),
        0
    );
}

TEST_F(KShellCommandTest, ThereIsNothingToReadAndTheCallersInputStays) {
    EXPECT_EQ(
        InChild([&] {
            int ends[2];
            if (::pipe(ends) != 0 || ::write(ends[1], "input", 5) != 5 || ::dup2(ends[0], 0) != 0) {
                return 1;
            }
            const std::string output = OutputOf("cat; read x || echo nothing");
            char rest[8];
            return output == "nothing\n" && ::read(0, rest, sizeof(rest)) == 5 ? 0 : 2;
        }),
        0
    );
}

TEST_F(KShellCommandTest, NoDescriptorIsInherited) {
    const int low = ::open("/dev/zero", O_RDONLY); // NOLINT: meant to be inherited
    const int high = ::fcntl(low, F_DUPFD, 400);
    const std::string output = OutputOf("for n in /proc/$$/fd/*; do readlink $n; done");
    ::close(low);
    ::close(high);
    const std::string file = tree.Path("output") + "\n";
    EXPECT_EQ(output, "/dev/null\n" + file + file);
}

TEST_F(KShellCommandTest, ACallerWithoutStandardDescriptorsLosesNoOutput) {
    EXPECT_EQ(
        InChild([&] {
            ::close(0);
            ::close(1);
            ::close(2);
            return OutputOf("echo one; echo two >&2; cat") == "one\ntwo\n" ? 0 : 1;
        }),
        0
    );
}

TEST_F(KShellCommandTest, NoSignalIsBlockedOrIgnored) {
    EXPECT_EQ(
        InChild([&] {
            sigset_t all;
            ::sigfillset(&all);
            ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
            for (int signal = 1; signal <= SIGRTMAX; ++signal) {
                std::signal(signal, SIG_IGN); // not all of them can be
            }
            const std::string status = OutputOf("cat /proc/self/status");
            const std::string none = ":\t0000000000000000\n";
            return status.find("SigBlk" + none + "SigIgn" + none + "SigCgt" + none) !=
                           std::string::npos
                       ? 0
                       : 1;
        }),
        0
    ) << Output();
}

TEST_F(KShellCommandTest, HasASessionAndAProcessGroupOfItsOwn) {
    const std::string output = OutputOf("cut -d ' ' -f 5-7 /proc/$$/stat; echo $$");
    const std::string shell = output.substr(output.find('\n') + 1);
    const std::string id = shell.substr(0, shell.find('\n'));
    EXPECT_EQ(output, id + " " + id + " 0\n" + shell);
    EXPECT_NE(::getpgrp(), std::stoi(id));
}

TEST_F(KShellCommandTest, TheCallersTerminalIsOutOfReach) {
    EXPECT_EQ(
        InChild([&] {
            const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
            if (::setsid() < 0 || ::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0 ||
                ::open(::ptsname(terminal), O_RDWR | O_CLOEXEC) < 0) { // becomes the terminal
                return 1;
            }
            const int controlling = ::open("/dev/tty", O_RDWR | O_CLOEXEC);
            const std::string output =
                OutputOf("(echo written >/dev/tty) 2>/dev/null || echo none");
            return controlling >= 0 && output == "none\n" ? 0 : 2;
        }),
        0
    );
}

// A caller with ways of its own

TEST_F(KShellCommandTest, ACallerThatIgnoresItsChildrensEndsIsSurvived) {
    EXPECT_EQ(
        InChild([&] {
            std::signal(SIGCHLD, SIG_IGN);
            for (int number = 0; number < 50; ++number) {
                if (OutputOf("echo x") != "x\n") {
                    return 1;
                }
            }
            KShellCommand command;
            tree.Remove("output");
            ExecuteUntilReady(
                command, "trap 'echo asked; exit' TERM; echo $$; while :; do sleep 0.1; done"
            );
            const pid_t shell = OutputNumber();
            command.Stop();
            const bool isIgnored = std::signal(SIGCHLD, SIG_DFL) == SIG_IGN;
            return isIgnored && !IsAlive(shell) && Output().ends_with("asked\n") ? 0 : 2;
        }),
        0
    );
}

TEST_F(KShellCommandTest, ACallerThatIgnoresItsChildrensEndsCanStillEndAWholeGroup) {
    EXPECT_EQ(
        InChild([&] {
            std::signal(SIGCHLD, SIG_IGN);
            KShellCommand command;
            ExecuteUntilReady(command, std::string(deafChild) + "& wait");
            const pid_t deaf = OutputNumber();
            command.Stop();
            return IsAlive(deaf) ? 1 : 0;
        }),
        0
    );
}

TEST_F(KShellCommandTest, ACallerThatTakesAllItsChildrenIsSurvived) {
    EXPECT_EQ(
        InChild([&] {
            struct sigaction takeAll {};
            takeAll.sa_handler = [](int) {
                const int former = errno;
                while (::waitpid(-1, nullptr, WNOHANG) > 0) {
                }
                errno = former;
            };
            ::sigaction(SIGCHLD, &takeAll, nullptr);
            for (int number = 0; number < 50; ++number) {
                if (OutputOf("echo x") != "x\n") {
                    return 1;
                }
            }
            return 0;
        }),
        0
    );
}

TEST_F(KShellCommandTest, TheCallersOwnChildrenAreLeftToIt) {
    const pid_t own = Start("/bin/sh", {"-c", "exit 5"});
    Run("true");
    EXPECT_EQ(EndOf(own), 5);
}

// What cannot be started

TEST_F(KShellCommandTest, ATextThatIsTooLongForTheKernelIsThrown) {
    KShellCommand command;
    const KError error = ErrorOf([&] { command.Execute(std::string(200000, ' ')); });
    EXPECT_EQ(
        PlaceWithoutLine(error),
        "24 7.0 sup++/KShellCommand:? Execute \"" + SystemInfo("/bin/sh", E2BIG) + '"'
    );
    EXPECT_FALSE(command.IsThreadActive());
    EXPECT_EQ(OutputOf("echo still works"), "still works\n");
}

TEST_F(KShellCommandTest, AMachineWithoutAShellIsThrown) {
    SetOutput(nullptr);
    SKIP_UNLESS_ROOT("change the root directory");
    EXPECT_EQ(
        InChild([&] {
            tree.Directory("dev");
            tree.Write("dev/null", ""); // a node needs more rights than some machines give
            if (::chroot(tree.Path().c_str()) != 0) {
                return 1;
            }
            KShellCommand command;
            const KError error = ErrorOf([&] { command.Execute("true"); });
            return error.GetInfo().GetString() == SystemInfo("/bin/sh", ENOENT).c_str() ? 0 : 2;
        }),
        0
    );
}

TEST_F(KShellCommandTest, NoProcessToBeHadIsThrown) {
    const int status = InChild([] {
        const rlimit none{0, 0};
        if (::setrlimit(RLIMIT_NPROC, &none) != 0 ||
            (IsRoot() && (::setresgid(nobodyId, nobodyId, nobodyId) != 0 ||
                          ::setresuid(nobodyId, nobodyId, nobodyId) != 0))) {
            return 1;
        }
        SetOutput(nullptr);
        KShellCommand command;
        return CodeOf([&] { command.Execute("true"); }) == EAGAIN && !command.IsThreadActive() ? 0
                                                                                               : 2;
    });
    EXPECT_EQ(status, 0);
}

TEST_F(KShellCommandTest, NoThreadToBeHadIsThrownAndNothingRuns) {
    EXPECT_EQ(
        InChild([&] {
            RefuseThreads();
            KShellCommand command;
            const KError error = ErrorOf([&] { command.Execute("exec sleep 1000"); });
            return error.GetCode() == EAGAIN && !command.IsThreadActive() &&
                           ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD
                       ? 0
                       : 1;
        }),
        0
    );
}

TEST_F(KShellCommandTest, AnEndThatCouldNotBeToldIsThrownAndNothingRuns) {
    for (const int errorNumber : {ENOSYS, EPERM}) {
        EXPECT_EQ(
            InChild([&] {
                RefuseCall(SYS_pidfd_open, errorNumber);
                KShellCommand command;
                const unsigned code = CodeOf([&] { command.Execute("exec sleep 1000"); });
                return code == static_cast<unsigned>(errorNumber) && !command.IsThreadActive() &&
                               ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD
                           ? 0
                           : 1;
            }),
            0
        ) << errorNumber;
    }
}

/// The command with ever more descriptors to be had: thrown until there are enough, and whatever
/// was started until then is gone.
TEST_F(KShellCommandTest, NoDescriptorToBeHadIsThrownAndNothingRuns) {
    const std::string missing = tree.Path("missing/output");
    EXPECT_EQ(
        InChild([&] {
            // A sanitizer needs descriptors when it meets a type for the first time.
            SetOutput(missing.c_str());
            CodeOf([] { Run("true"); });
            SetOutput(nullptr);
            Run("true");
            int last = 0;
            while (last < OpenDescriptors().back()) { // no gap is left below
                last = ::dup(0);
            }
            const auto used = static_cast<rlim_t>(last) + 1;
            for (rlim_t more = 0; more < 10; ++more) {
                const rlimit limit{used + more, used + 10};
                ::setrlimit(RLIMIT_NOFILE, &limit);
                KShellCommand command;
                const unsigned code = CodeOf([&] { command.Execute("exec sleep 1000"); });
                if (code == 0) {
                    command.Stop();
                    return more > 0 ? 0 : 1;
                }
                if (code != EMFILE || ::waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD) {
                    return 2;
                }
            }
            return 3;
        }),
        0
    );
}

} // namespace
} // namespace KTEST
