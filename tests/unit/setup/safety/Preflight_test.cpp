// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/KSetupFailure.h>
#include <setup/safety/PlannedPaths.h>
#include <setup/safety/Preflight.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include <fcntl.h>
#include <linux/fs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using KSETUP::KPlan;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

/// The exit code and the text of a refusal; empty without one.
std::string Refusal(const std::function<void()>& check) {
    try {
        check();
    } catch (const KSETUP::KSetupFailure& failure) {
        return std::to_string(failure.GetExitCode()) + " " + failure.what();
    }
    return "";
}

class PreflightTest : public ::testing::Test {
  protected:
    KPlan Plan(const std::string& rules) {
        tree.Write("kit/install.ini", "[install]\n" + rules);
        KSETUP::KPlannedTree planned(KSETUP::KPlannedTree::Below::Disk, tree.Path("kit"));
        const KSETUP::KScript script(tree.Path("kit/install.ini").c_str());
        const std::string at = tree.Path();
        return {
            script,
            "install",
            [&](const KSUP::KString& text) {
                std::string expanded = text.c_str();
                for (std::size_t found = 0; (found = expanded.find("$t$")) != std::string::npos;) {
                    expanded.replace(found, 3, at);
                }
                return KSUP::KString(expanded.c_str());
            },
            planned};
    }
    std::string KitRefusal() {
        return Refusal([&] { KSETUP::CheckKitIsPrivate(tree.Path("kit")); });
    }

    KTEST::TemporaryTree tree;
};

KPlan::Space Space(std::uint64_t needed, std::uint64_t available) {
    KPlan::Space space;
    space.directory = "/opt";
    space.needed = needed;
    space.available = available;
    space.filesNeeded = 10;
    space.filesAvailable = 1000;
    return space;
}

TEST_F(PreflightTest, EnoughSpaceIsFine) {
    EXPECT_NO_THROW(KSETUP::CheckSpace({Space(100 << 20, 102 << 20), Space(0, 0)}));
}

TEST_F(PreflightTest, TooLittleSpaceIsToldInUnitsThatPeopleRead) {
    EXPECT_EQ(
        Refusal([] { KSETUP::CheckSpace({Space(100 << 20, (102 << 20) - 1)}); }),
        "73 there is not enough space on the file system of /opt: 100.0 MiB and 2.0 MiB in reserve "
        "are needed, 102.0 MiB are free. Free some, or install on another file system. Nothing was "
        "changed."
    );
}

TEST_F(PreflightTest, TooManyFilesAreToldUnlessThereIsNoLimit) {
    KPlan::Space space = Space(1, 10 << 20);
    space.filesAvailable = 25;
    EXPECT_THAT(
        Refusal([&] { KSETUP::CheckSpace({space}); }),
        HasSubstr("73 the file system of /opt cannot hold so many files: 10 and 16 in reserve are "
                  "needed, 25 are free.")
    );
    space.filesAreUnlimited = true;
    EXPECT_NO_THROW(KSETUP::CheckSpace({space}));
}

TEST(ReadableBytesTest, HasOneDecimalPlace) {
    EXPECT_EQ(KSETUP::ReadableBytes(0), "0 bytes");
    EXPECT_EQ(KSETUP::ReadableBytes(1023), "1023 bytes");
    EXPECT_EQ(KSETUP::ReadableBytes(1536), "1.5 KiB");
    EXPECT_EQ(KSETUP::ReadableBytes(std::uint64_t{5} << 40U), "5.0 TiB");
    EXPECT_EQ(KSETUP::ReadableBytes(std::uint64_t{5} << 50U), "5120.0 TiB");
}

TEST_F(PreflightTest, AWritableTargetIsFine) {
    EXPECT_NO_THROW(KSETUP::CheckWritable({tree.Path("a/b/c"), "/", ""}));
}

TEST_F(PreflightTest, ATargetThatIsMountedReadOnlyIsTold) {
    tree.Directory("mount");
    const std::string mount = tree.Path("mount");
    constexpr int cannotMount = 99;
    const pid_t child = ::fork();
    if (child == 0) { // sees a mount that nobody else does
        if (::unshare(CLONE_NEWNS) != 0 ||
            ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("none", mount.c_str(), "tmpfs", MS_RDONLY, nullptr) != 0) {
            ::_exit(cannotMount);
        }
        const std::string refusal = Refusal([&] { KSETUP::CheckWritable({mount + "/a/b"}); });
        const std::string expected = "73 " + mount + "/a/b cannot be written: " + mount + " is on";
        ::_exit(refusal.starts_with(expected) ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == cannotMount) {
        GTEST_SKIP() << "a mount of one's own needs root";
    }
    EXPECT_EQ(status, 0);
}

TEST_F(PreflightTest, AnImmutableFileIsTold) {
    tree.Write("file", "");
    const int file = ::open(tree.Path("file").c_str(), O_RDONLY | O_CLOEXEC);
    int off = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
    bool possible = ::ioctl(file, FS_IOC_GETFLAGS, &off) == 0;
    const int on = off | FS_IMMUTABLE_FL;
    possible = possible && ::ioctl(file, FS_IOC_SETFLAGS, &on) == 0;
    const std::string refusal = Refusal([&] { KSETUP::CheckWritable({tree.Path("file")}); });
    ::ioctl(file, FS_IOC_SETFLAGS, &off);
#pragma GCC diagnostic pop
    ::close(file);
    if (!possible) {
        GTEST_SKIP() << "the attribute cannot be set on the file system of the temporary tree";
    }
    EXPECT_THAT(refusal, HasSubstr("73 " + tree.Path("file") + " has the attribute \"immutable\""));
}

TEST_F(PreflightTest, ANewerVersionIsNotOverwrittenUnlessAllowed) {
    const auto check = [](const char* installed, unsigned build, bool allowed) {
        return Refusal([&] {
            KSETUP::CheckDowngrade("DPS", {installed, build}, {"2.9", 5}, allowed);
        });
    };
    EXPECT_EQ(
        check("2.10", 1, false),
        "64 DPS 2.10 (build 1) is installed, which is newer than this kit's 2.9 (build 5). Give "
        "--allow-downgrade to install it all the same. Nothing was changed."
    );
    EXPECT_THAT(check("2.9", 6, false), StartsWith("64 "));
    EXPECT_EQ(check("2.9", 5, false), "");
    EXPECT_EQ(check("2.8", 9, false), "");
    EXPECT_EQ(check("2.10", 1, true), "");
    EXPECT_EQ(check("unknown", 0, false), "");
    EXPECT_EQ(check("", 7, false), "");
}

TEST_F(PreflightTest, ServicesNeedTheServiceManagerUnlessLeftForTheNextBoot) {
    const KPlan with = Plan("service=start,dps\n");
    const KPlan without = Plan("directory=create,$t$/x\n");
    const auto check = [&](const KPlan& plan, bool offline) {
        return Refusal([&] { KSETUP::CheckServiceManager(plan, offline, tree.Path("run")); });
    };
    EXPECT_THAT(check(with, false), StartsWith("69 the script has services, but systemd does not"));
    EXPECT_EQ(check(with, true), "");
    EXPECT_EQ(check(without, false), "");
    tree.Directory("run");
    EXPECT_EQ(check(with, false), "");
}

TEST_F(PreflightTest, AKitOfRootsIsFine) {
    tree.Write("kit/lin/file", "");
    tree.Link("kit/link", "nowhere");
    EXPECT_EQ(KitRefusal(), "");
}

TEST_F(PreflightTest, AKitThatOthersMayWriteIsRefused) {
    tree.Directory("kit", 01777);
    EXPECT_THAT(
        KitRefusal(),
        StartsWith(
            "66 the kit is not root's alone: " + tree.Path("kit") + " may be written by everybody"
        )
    );
    tree.SetOwner("kit", 65534, 0);
    EXPECT_THAT(KitRefusal(), HasSubstr("belongs to user 65534"));
}

TEST_F(PreflightTest, AKitWithAFileThatOthersMayWriteIsRefused) {
    tree.Write("kit/lin/file", "", 0664);
    tree.SetOwner("kit/lin/file", 0, 100);
    EXPECT_THAT(
        KitRefusal(), HasSubstr(tree.Path("kit/lin/file") + " may be written by group 100")
    );
}

TEST_F(PreflightTest, AKitThatOthersMayMoveAwayIsRefused) {
    tree.Directory("kit");
    tree.SetMode("", 0777);
    EXPECT_THAT(KitRefusal(), HasSubstr(tree.Path() + " may be written by everybody"));
    tree.SetMode("", 01777); // as /tmp: what is root's stays where it is
    EXPECT_EQ(KitRefusal(), "");
}

TEST_F(PreflightTest, AGroupOfTheSystemMayWriteLogs) {
    const auto check = [&] {
        return Refusal([&] { KSETUP::CheckLogDirectory(tree.Path("log")); });
    };
    tree.Directory("log", 0775);
    tree.SetOwner("log", 0, 102);
    EXPECT_EQ(check(), "");
    tree.SetOwner("log", 0, 1000);
    EXPECT_THAT(check(), StartsWith("73 the directory of logs is not root's alone"));
    tree.Directory("log", 0757);
    EXPECT_THAT(check(), HasSubstr("may be written by everybody"));
}

TEST_F(PreflightTest, ProgramsThatRunFromReplacedFilesAreNamed) {
    tree.Write("p/dpsd", "program");
    tree.Write("p/other", "program");
    tree.Link("by-link", "p");
    for (const char* process : {"proc/90", "proc/7", "proc/8"}) {
        tree.Write(std::string(process) + "/comm", "dp\x1bsd\n");
    }
    tree.Link("proc/90/exe", tree.Path("p/dpsd"));
    tree.Link("proc/7/exe", tree.Path("p/dpsd"));
    tree.Link("proc/8/exe", tree.Path("p/other"));
    tree.Link("proc/self", "7");
    tree.Link("proc/" + std::to_string(::getpid()) + "/exe", tree.Path("p/dpsd"));
    const std::string path = tree.Path("by-link/dpsd");
    std::vector<std::string> words;
    for (const auto& one : KSETUP::FindRunningPrograms({path, "/none"}, tree.Path("proc"))) {
        words.push_back(one.ToWords());
    }
    EXPECT_THAT(words, ElementsAre("7 dp?sd " + path, "90 dp?sd " + path));
}

TEST_F(PreflightTest, ThisMachinesProcessesCanBeLookedThrough) {
    EXPECT_THAT(KSETUP::FindRunningPrograms({tree.Path("none")}), IsEmpty());
}

TEST_F(PreflightTest, ThePathsOfAPlanAreSorted) {
    tree.Write("kit/a", "a");
    tree.Write("p/a", "old");
    tree.Write("p/b", "old");
    const KPlan plan =
        Plan("file=copy,a,$t$/kit,$t$/p\nfile=copy,none,$t$/kit,$t$/p\nfile=delete,b,$t$/p\n"
             "directory=create,$t$/p/d\nfile=symlink,a,$t$/p,$t$/p,l\n"
             "profile=put,$t$/p/c,s,k,v\nservice=stop,dps\nprocess=start,true\n");
    EXPECT_THAT(
        KSETUP::ChangedPaths(plan),
        ElementsAre(
            tree.Path("p/a"), tree.Path("p/b"), tree.Path("p/c"), tree.Path("p/d"), tree.Path("p/l")
        )
    );
    EXPECT_THAT(KSETUP::ReplacedPaths(plan), ElementsAre(tree.Path("p/a"), tree.Path("p/b")));
    EXPECT_THAT(
        KSETUP::InstalledPaths(plan),
        ElementsAre(tree.Path("p/a"), tree.Path("p/c"), tree.Path("p/d"), tree.Path("p/l"))
    );
}

} // namespace
