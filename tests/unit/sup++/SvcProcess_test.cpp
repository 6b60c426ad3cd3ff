// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "KShellCommandFixture.h"

#include <array>

#include <fcntl.h>
#include <unistd.h>

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KShellCommand;

class SvcProcessTest : public KShellCommandFixture {
  protected:
    /// What reaches this process's own output and error output while `body` runs.
    static std::string CallersOutput(const boost::function<void()>& body) {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            return "no pipe";
        }
        const std::array<int, 2> former{::dup(1), ::dup(2)};
        ::dup2(ends[1], 1);
        ::dup2(ends[1], 2);
        body();
        ::dup2(former[0], 1);
        ::dup2(former[1], 2);
        for (const int file : {former[0], former[1], ends[1]}) {
            ::close(file);
        }
        std::array<char, 256> text{};
        const ssize_t bytes = ::read(ends[0], text.data(), text.size());
        ::close(ends[0]);
        return {text.data(), static_cast<std::size_t>(bytes > 0 ? bytes : 0)};
    }
    static constexpr const char* both = "echo one; echo two >&2";
};

TEST_F(SvcProcessTest, TheCallersOutputIsReallyCaught) {
    EXPECT_EQ(CallersOutput([] { static_cast<void>(::write(1, "x", 1)); }), "x");
}

TEST_F(SvcProcessTest, WithoutAFileOutputIsDropped) {
    for (const char* none : {static_cast<const char*>(nullptr), ""}) {
        SetOutput(none);
        EXPECT_EQ(CallersOutput([] { Run(both); }), "");
    }
    EXPECT_FALSE(tree.Exists("output"));
}

TEST_F(SvcProcessTest, WithAFileTheCallersOutputStaysClean) {
    EXPECT_EQ(CallersOutput([] { Run(both); }), "");
    EXPECT_EQ(Output(), "one\ntwo\n");
}

TEST_F(SvcProcessTest, TheFileIsMadeWithMode0640WhateverTheUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        const UmaskGuard callers(mask);
        OutputOf("true");
        EXPECT_EQ(tree.Mode("output"), 0640U);
    }
}

TEST_F(SvcProcessTest, AFileThatIsThereGrowsAndKeepsItsMode) {
    tree.Write("output", "former\n", 0600);
    Run("echo new");
    EXPECT_EQ(Output(), "former\nnew\n");
    EXPECT_EQ(tree.Mode("output"), 0600U);
}

TEST_F(SvcProcessTest, CommandsThatRunAtTheSameTimeDoNotOverwriteEachOther) {
    KShellCommand first;
    KShellCommand second;
    first.Execute("for n in 1 2 3 4 5; do echo first; sleep 0.02; done");
    second.Execute("for n in 1 2 3 4 5; do echo second; sleep 0.02; done");
    WaitForEnd(first);
    WaitForEnd(second);
    EXPECT_EQ(Output().size(), 5 * sizeof("first") + 5 * sizeof("second"));
}

TEST_F(SvcProcessTest, AFileThatWasTakenAwayIsMadeAgain) {
    Run("echo one");
    tree.Remove("output");
    Run("echo two");
    EXPECT_EQ(Output(), "two\n");
}

TEST_F(SvcProcessTest, AnotherFileHoldsForCommandsThatStartFromThenOn) {
    tree.Fifo("gate");
    KShellCommand running;
    running.Execute("read line <" + tree.Path("gate") + "; echo former");
    SetOutput(tree.Path("other").c_str());
    Run("echo new");
    Run("echo >" + tree.Path("gate"));
    WaitForEnd(running);
    EXPECT_EQ(Output(), "former\n");
    EXPECT_EQ(tree.Read("other"), "new\n");
}

TEST_F(SvcProcessTest, TheTextIsCopied) {
    std::string path = tree.Path("output");
    SetOutput(path.c_str());
    path.assign(path.size(), 'x');
    Run("echo one");
    EXPECT_EQ(Output(), "one\n");
}

struct Refusal {
    const char* name;
    const char* path;
    int errorNumber;
};

/// Of a link the system would say that there are too many.
std::string InfoOf(const std::string& path, int errorNumber) {
    return errorNumber == ELOOP
               ? path + ": a symbolic link on the way that others than root could have laid"
               : SystemInfo(path, errorNumber);
}

class SvcProcessRefusalTest : public KShellCommandFixture,
                              public testing::WithParamInterface<Refusal> {};

TEST_P(SvcProcessRefusalTest, IsThrownWhenACommandStartsAndNothingRuns) {
    tree.Directory("directory");
    tree.Write("target", "");
    tree.Link("link", "target");
    tree.Link("dangling", "nothing");
    tree.Fifo("fifo");
    const std::string path = tree.Path(GetParam().path);
    SetOutput(path.c_str());
    KShellCommand command;
    const KError error = ErrorOf([&] { command.Execute("echo x >" + tree.Path("ran")); });
    EXPECT_EQ(
        PlaceWithoutLine(error),
        "24 " + std::to_string(GetParam().errorNumber) + ".0 sup++/KShellCommand:? Execute \"" +
            InfoOf(path, GetParam().errorNumber) + '"'
    );
    EXPECT_FALSE(command.IsThreadActive());
    command.Stop();
    EXPECT_FALSE(tree.Exists("ran"));
    EXPECT_FALSE(tree.Exists("nothing"));
    EXPECT_EQ(tree.Read("target"), "");
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    SvcProcessRefusalTest,
    testing::Values(
        Refusal{"ALink", "link", ELOOP},
        Refusal{"ADanglingLink", "dangling", ELOOP},
        Refusal{"ADirectory", "directory", EISDIR},
        Refusal{"AMissingDirectory", "missing/output", ENOENT},
        Refusal{"AFifo", "fifo", EINVAL},
        Refusal{"ADirectoryThatIsAFile", "target/output", ENOTDIR}
    ),
    NameOfRow()
);

TEST_F(SvcProcessTest, ANameThatIsTooLongIsThrown) {
    SetOutput(tree.Path(std::string(256, 'x')).c_str());
    EXPECT_EQ(CodeOf([] { Run("true"); }), static_cast<unsigned>(ENAMETOOLONG));
}

} // namespace
} // namespace KTEST
