// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/KitBundle.h>
#include <setup/kit/KitSeal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <bundle/Architecture.h>
#include <bundle/BundleFormat.h>
#include <sys/wait.h>

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

/// A kit whose ins-setup is a script, and "other.run", a bundle of it that says it was made for aarch64:
/// a program for this machine with the mark of that one.
class BundleJoinTest : public ::testing::Test {
  protected:
    BundleJoinTest() {
        tree.Write("kit/product.ini", "[product]\n");
        tree.Write("kit/sub/data", "bytes");
        tree.Write(
            "kit/ins-setup", "#!/bin/sh\ncd ${0%/*}\ncat sub/data\nprintf ' <%s>' \"$@\"\n", 0755
        );
    }

    void MakeOther(const std::string& kit = "kit") {
        KSETUP::MakeBundle(tree.Path(kit), tree.Path("made.run"));
        std::string bytes = tree.Read("made.run");
        auto end = *KBUNDLE::ReadBundleEnd(bytes, bytes.size());
        bytes[18] = static_cast<char>(0xB7);
        bytes[19] = 0;
        end.headSha256 = KBUNDLE::Sha256Of(std::string_view(bytes).substr(0, end.headBytes));
        bytes.replace(
            bytes.size() - KBUNDLE::bundleEndBytes, KBUNDLE::bundleEndBytes, ToBytes(end)
        );
        tree.Write("other.run", bytes, 0755);
        std::filesystem::remove(tree.Path("made.run"));
    }

    std::string Refusal(std::vector<std::string> others = {"other.run"}) {
        for (std::string& other : others) {
            other = tree.Path(other);
        }
        try {
            said = KSETUP::MakeBundle(tree.Path("kit"), tree.Path("it.run"), "", others);
        } catch (const KSETUP::KSetupFailure& failure) {
            exitCode = failure.GetExitCode();
            EXPECT_FALSE(tree.Exists("it.run"));
            return failure.what();
        }
        return {};
    }

    int Shell(const std::string& line) {
        const int status = std::system( // NOLINT(concurrency-mt-unsafe,cert-env33-c): what users do
            ("cd '" + tree.Path() + "' && { " + line + "; } > out 2> err < /dev/null").c_str()
        );
        return WEXITSTATUS(status);
    }

    /// What a refused kit says that lies in "changed".
    std::string RefusalOfChanged() {
        MakeOther("changed");
        const std::string why = Refusal();
        EXPECT_EQ(exitCode, KSETUP::ExitCode::malformedScript);
        EXPECT_THAT(why, HasSubstr("of one and the same kit"));
        return why;
    }
    void CopyKit() {
        std::filesystem::copy(
            tree.Path("kit"), tree.Path("changed"), std::filesystem::copy_options::recursive
        );
    }

    KTEST::TemporaryTree tree;
    const std::string own{KBUNDLE::OwnArchitecture().name};
    std::string said;
    int exitCode = 0;
};

TEST_F(BundleJoinTest, OneFileIsForBothArchitectures) {
    MakeOther();
    ASSERT_EQ(Refusal(), "");
    EXPECT_EQ(said, own + ", aarch64");
    EXPECT_EQ(Shell("./it.run"), 0) << tree.Read("err");
    EXPECT_EQ(tree.Read("out"), "bytes <install>");
    EXPECT_EQ(Shell("./it.run --verify && ./it.run plan 'a b' '$HOME' --json"), 0)
        << tree.Read("err");
    EXPECT_EQ(tree.Read("out"), "./it.run is whole.\nbytes <plan> <a b> <$HOME> <--json>");
    EXPECT_EQ(Shell("./it.run --list && ./it.run --extract new && ls new"), 0) << tree.Read("err");
    EXPECT_THAT(
        tree.Read("out"), AllOf(HasSubstr(" all      sub/data\n"), HasSubstr("\nproduct.ini\n"))
    );
    EXPECT_EQ(tree.Read("new/sub/data"), "bytes");
    EXPECT_EQ(Shell("ls -A /var/tmp /tmp | grep ins-setup-head-"), 1) << tree.Read("out");
}

/// Without another one it is what it always was.
TEST_F(BundleJoinTest, OneArchitectureAloneIsNotJoined) {
    EXPECT_EQ(Refusal({}), "");
    EXPECT_EQ(said, "");
    EXPECT_TRUE(tree.Read("it.run").starts_with("\x7F"
                                                "ELF"));
}

TEST_F(BundleJoinTest, AnArchitectureThatItHasNotIsRefused) {
    MakeOther();
    std::filesystem::rename(tree.Path("other.run"), tree.Path("first.run"));
    ASSERT_EQ(Refusal({"first.run"}), "");
    if (own != "x86_64" || Shell("setarch i686 true") != 0) {
        GTEST_SKIP() << "no system of another architecture can be had here";
    }
    EXPECT_EQ(Shell("setarch i686 ./it.run"), 66);
    EXPECT_EQ(tree.Read("out"), "");
    EXPECT_EQ(
        tree.Read("err"),
        "ins-setup: ./it.run: the bundle is for x86_64 and aarch64, and this machine is i686. Get "
        "one "
        "for that.\n"
    );
    std::filesystem::rename(tree.Path("it.run"), tree.Path("a \"\\\n$x.run"));
    EXPECT_EQ(Shell("setarch i686 ./a*.run --work /x remove --json"), 66);
    EXPECT_EQ(
        tree.Read("out"),
        "{\"schema\":1,\"command\":\"remove\",\"result\":\"refused\",\"exitCode\":66,\"changed\":"
        "false,"
        "\"error\":{\"text\":\"./a \\\"\\\\\\n$x.run: the bundle is for x86_64 and aarch64, and "
        "this "
        "machine is i686. Get one for that.\"}}\n"
    );
    EXPECT_EQ(Shell("setarch i686 ./a*.run status --json"), 66);
    EXPECT_THAT(
        tree.Read("out"),
        HasSubstr("\"command\":\"status\",\"result\":\"refused\",\"exitCode\":66,\"error\"")
    );
}

TEST_F(BundleJoinTest, ItRunsWhateverItIsCalled) {
    MakeOther();
    ASSERT_EQ(Refusal(), "");
    tree.Directory("named");
    for (const char* name : {"a b", "'q\"", "-n", "new\nline", "$x`id`", "*"}) {
        std::filesystem::copy(tree.Path("it.run"), tree.Path("named/") + name);
        EXPECT_EQ(Shell("for each in named/*; do \"./$each\" plan <&- || exit; done"), 0) << name;
        EXPECT_EQ(tree.Read("out"), "bytes <plan>") << name << tree.Read("err");
        EXPECT_EQ(Shell("cd named && for each in *; do (PATH=:$PATH; \"$each\" a); done"), 0)
            << name;
        EXPECT_EQ(tree.Read("out"), "bytes <a>") << name << tree.Read("err");
        std::filesystem::remove(tree.Path("named/") + name);
    }
    EXPECT_EQ(Shell("ln -s it.run link && ./link && sh it.run"), 0) << tree.Read("err");
    EXPECT_EQ(tree.Read("out"), "bytes <install>bytes <install>");
}

/// But for what the shell that chooses sets itself.
TEST_F(BundleJoinTest, WhatRunsHasTheEnvironmentOfTheCaller) {
    tree.Write(
        "kit/ins-setup", "#!/bin/sh\nenv | grep -v -e ^PWD= -e ^_= -e ^SHLVL=\numask\npwd\n", 0755
    );
    MakeOther();
    ASSERT_EQ(Refusal(), "");
    KSETUP::MakeBundle(tree.Path("kit"), tree.Path("alone.run"));
    const std::string with =
        "umask 027; env -i PATH=/usr/bin:/bin IFS=x made=/a file=b place=c first=1 count=2 "
        "work=d why=e json=f TMPDIR=/none ";
    ASSERT_EQ(Shell(with + "./alone.run | sort"), 0);
    const std::string alone = tree.Read("out");
    EXPECT_THAT(alone, AllOf(HasSubstr("\nmade=/a\n"), HasSubstr("0027\n")));
    EXPECT_EQ(Shell(with + "./it.run | sort"), 0);
    EXPECT_EQ(tree.Read("out"), alone) << tree.Read("err");
}

TEST_F(BundleJoinTest, AProgramThatIsKilledLeavesNoCopy) {
    tree.Write(
        "kit/ins-setup",
        "#!/bin/sh\nreadlink /proc/$PPID/exe > " + tree.Path("exe") + "\nkill -9 $PPID\n",
        0755
    );
    MakeOther();
    ASSERT_EQ(Refusal(), "");
    EXPECT_EQ(Shell("./it.run; sleep 1"), 0);
    EXPECT_THAT(tree.Read("exe"), AllOf(HasSubstr("/.ins-setup-head-"), HasSubstr(" (deleted)")));
    EXPECT_EQ(Shell("test -e \"$(dirname \"$(cat exe)\")\""), 1);
}

TEST_F(BundleJoinTest, APlaceThatOthersCanChangeIsRefused) {
    MakeOther();
    ASSERT_EQ(Refusal(), "");
    tree.Directory("open", 0777);
    EXPECT_EQ(Shell("./it.run --work open"), 73);
    EXPECT_THAT(tree.Read("err"), HasSubstr("\n    ./open: others can change it\n"));
    EXPECT_EQ(Shell("mkdir -m 755 open/in && ./it.run --work=\"$PWD/open/in\" status --json"), 73);
    EXPECT_THAT(tree.Read("out"), HasSubstr("/open/in: others can change it\\nName one"));
    EXPECT_EQ(Shell("chmod 1777 open && ./it.run --work open/in"), 0) << tree.Read("err");
    EXPECT_EQ(Shell("ls -A open/in && ./it.run --work nowhere"), 73);
    EXPECT_EQ(tree.Read("out"), "");
    EXPECT_THAT(tree.Read("err"), HasSubstr("\n    ./nowhere: not there\n"));
}

TEST_F(BundleJoinTest, TheSameArchitectureTwiceIsRefused) {
    KSETUP::MakeBundle(tree.Path("kit"), tree.Path("other.run"));
    EXPECT_THAT(Refusal(), HasSubstr("other.run: is for " + own + ", as "));
    EXPECT_EQ(exitCode, KSETUP::ExitCode::usage);
    MakeOther();
    EXPECT_THAT(Refusal({"other.run", "other.run"}), HasSubstr("is for aarch64, as "));
}

TEST_F(BundleJoinTest, AJoinedBundleIsLookedAtForAllThatItHas) {
    MakeOther();
    ASSERT_EQ(Refusal(), "");
    std::filesystem::rename(tree.Path("it.run"), tree.Path("both.run"));
    EXPECT_THAT(Refusal({"both.run"}), HasSubstr("both.run: is for " + own + ", as "));
}

TEST_F(BundleJoinTest, AFileThatDiffersIsNamed) {
    CopyKit();
    tree.Write("changed/sub/data", "Bytes");
    EXPECT_THAT(
        RefusalOfChanged(),
        AllOf(HasSubstr("sub/data in "), HasSubstr("other.run differs from that in "))
    );
}

TEST_F(BundleJoinTest, AModeThatDiffersIsNamed) {
    CopyKit();
    std::filesystem::permissions(tree.Path("changed/sub/data"), std::filesystem::perms(0755));
    EXPECT_THAT(RefusalOfChanged(), HasSubstr("sub/data in "));
}

TEST_F(BundleJoinTest, AFileThatIsMissingIsNamed) {
    CopyKit();
    std::filesystem::remove(tree.Path("changed/sub/data"));
    EXPECT_THAT(
        RefusalOfChanged(), HasSubstr("sub/data is in " + tree.Path("kit") + ", and not in ")
    );
}

TEST_F(BundleJoinTest, AFileThatIsTooMuchIsNamed) {
    CopyKit();
    tree.Write("changed/sub/more", "");
    EXPECT_THAT(RefusalOfChanged(), HasSubstr("sub/more is in " + tree.Path("other.run")));
    std::filesystem::remove(tree.Path("changed/sub/more"));
    tree.Directory("changed/sub/none");
    EXPECT_THAT(RefusalOfChanged(), HasSubstr("sub/none is in "));
}

TEST_F(BundleJoinTest, AScriptInPlaceOfTheProgramIsOfTheKit) {
    CopyKit();
    tree.Write("changed/ins-setup", "#!/bin/sh\n", 0755);
    EXPECT_THAT(RefusalOfChanged(), HasSubstr("ins-setup in "));
}

TEST_F(BundleJoinTest, NoticesThatTheKitBringsAreOfTheKit) {
    tree.Write("kit/licences/mine", "mine");
    CopyKit();
    tree.Write("changed/licences/mine", "other");
    EXPECT_THAT(RefusalOfChanged(), HasSubstr("licences/mine in "));
}

/// Those that come with the program may be of another version of it.
TEST_F(BundleJoinTest, WhatComesWithTheProgramMayDiffer) {
    CopyKit();
    tree.Write("changed/licences/another", "of a library that is used there");
    tree.Write("changed/locale/xx/words", "");
    tree.Write(
        "changed/libfoo.so.1",
        "\x7F"
        "ELF of a library"
    );
    MakeOther("changed");
    ASSERT_EQ(Refusal(), "");
    EXPECT_EQ(Shell("./it.run --list"), 0);
    EXPECT_THAT(
        tree.Read("out"),
        AllOf(
            HasSubstr(" aarch64  licences/another\n"),
            HasSubstr(" aarch64  libfoo.so.1\n"),
            HasSubstr(" all      product.ini\n")
        )
    );
    EXPECT_EQ(Shell("./it.run --extract new && ls -A new new/licences"), 0);
    EXPECT_THAT(tree.Read("out"), ::testing::Not(HasSubstr("another")));
    EXPECT_THAT(tree.Read("out"), ::testing::Not(HasSubstr("libfoo")));
}

TEST_F(BundleJoinTest, WhatOnlyIsCalledALibraryIsOfTheKit) {
    CopyKit();
    tree.Write("changed/libfoo.so.1", "a text");
    EXPECT_THAT(RefusalOfChanged(), HasSubstr("libfoo.so.1 is in "));
}

TEST_F(BundleJoinTest, ASealIsMadeAnewForEach) {
    CopyKit();
    tree.Write(
        "changed/libfoo.so.1",
        "\x7F"
        "ELF of a library"
    );
    KSETUP::WriteSeal(tree.Path("kit"));
    KSETUP::WriteSeal(tree.Path("changed"));
    MakeOther("changed");
    ASSERT_EQ(Refusal(), "");
    EXPECT_EQ(
        Shell("./it.run --extract new && cd new && sha256sum --strict --quiet -c SHA256SUMS && "
              "! grep libfoo SHA256SUMS && cd .. && ./it.run --list | grep -c SHA256SUMS"),
        0
    ) << tree.Read("err");
    EXPECT_EQ(tree.Read("out"), "2\n");
}

TEST_F(BundleJoinTest, OneThatIsNotSealedDiffers) {
    CopyKit();
    KSETUP::WriteSeal(tree.Path("kit"));
    EXPECT_THAT(RefusalOfChanged(), HasSubstr("SHA256SUMS is in " + tree.Path("kit")));
    std::filesystem::remove(tree.Path("kit/SHA256SUMS"));
    KSETUP::WriteSeal(tree.Path("changed"));
    EXPECT_THAT(RefusalOfChanged(), HasSubstr("SHA256SUMS is in " + tree.Path("other.run")));
}

TEST_F(BundleJoinTest, WhatIsNoBundleIsRefused) {
    tree.Write("other.run", std::string(1000, 'x'));
    EXPECT_THAT(Refusal(), HasSubstr("other.run: no bundle"));
    EXPECT_EQ(exitCode, KSETUP::ExitCode::noKit);
    EXPECT_THAT(Refusal({"missing.run"}), HasSubstr("missing.run: No such file"));
    EXPECT_EQ(exitCode, KSETUP::ExitCode::noKit);
    MakeOther();
    const std::string whole = tree.Read("other.run");
    std::string changed = whole;
    changed[100] = static_cast<char>(changed[100] ^ 1);
    tree.Write("other.run", changed);
    EXPECT_THAT(Refusal(), HasSubstr("other.run: the bundle is damaged"));
    EXPECT_EQ(exitCode, KSETUP::ExitCode::malformedScript);
}

} // namespace
