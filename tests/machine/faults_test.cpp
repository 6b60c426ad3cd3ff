// SPDX-License-Identifier: MIT
//
// What really goes wrong on a machine: disks that are full or read-only, missing rights, files that
// vanish, a process that is killed.
#include "../support/ErrorProbe.h"
#include "../support/NameOfRow.h"
#include "MachineRig.h"

#include <ins/KFileRule.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <system_error>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using KTEST::ArbitraryBytes;
using KTEST::NameOfRow;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// A file system of a few pages, gone with the object.
class SmallDisk {
  public:
    SmallDisk(const std::string& mountPoint, const char* options) : path(mountPoint) {
        if (::mount("small", path.c_str(), "tmpfs", 0, options) != 0) {
            throw std::system_error(errno, std::generic_category(), "mount " + path);
        }
    }
    ~SmallDisk() { ::umount2(path.c_str(), MNT_DETACH); }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    void Remount(unsigned long flags, const char* options) const {
        if (::mount("small", path.c_str(), "tmpfs", MS_REMOUNT | flags, options) != 0) {
            throw std::system_error(errno, std::generic_category(), "remount " + path);
        }
    }
    /// Leaves no free block.
    void Fill() const {
        const int file = ::open((path + "/fill").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        const std::string block(4096, 'x');
        while (::write(file, block.data(), block.size()) > 0) {
        }
        ::close(file);
    }
    void Free() const { std::filesystem::remove(path + "/fill"); }

  private:
    std::string path;
};

class FaultsTest : public KTEST::MachineTest {
  protected:
    FaultsTest() { GivenProduct("2.1", 37); }

    unsigned Install() {
        Renew();
        Initialize();
        installer->StartInstall(tree.Path("p"));
        return CodeOfEnd();
    }
    /// A failed install tells what and where, and leaves no record; the next one is whole.
    void ExpectFailure(int code, const std::string& path) {
        EXPECT_EQ(static_cast<unsigned>(code), Install());
        EXPECT_EQ(tree.Path(path) + ": " + std::strerror(code), failure);
        EXPECT_EQ(Product(), "none");
    }
    void ExpectWholeInstall() {
        EXPECT_EQ(Install(), 0U) << failure;
        EXPECT_EQ("2.1 37 " + tree.Path("p"), Product());
        EXPECT_EQ(tree.Read("p/lin/x86/svc"), "program");
        EXPECT_EQ(tree.Mode("p/lin/x86/svc"), 0755U);
    }
};

// Disks

TEST_F(FaultsTest, AFullDiskIsToldWithItsFileAndTheNextInstallIsWhole) {
    tree.Write("kit/big", ArbitraryBytes(3000000));
    tree.Directory("disk");
    GivenProductScript("file=copy,big,$pathSource$,@T@/disk\n");
    const SmallDisk disk(tree.Path("disk"), "size=1m");
    ExpectFailure(ENOSPC, "disk/big");
    EXPECT_EQ(tree.Read("p/lin/x86/svc"), "program"); // what was done stays done
    EXPECT_TRUE(tree.Exists("disk/big"));             // and so does the part
    disk.Remount(0, "size=8m");
    ExpectWholeInstall();
    EXPECT_EQ(ArbitraryBytes(3000000), tree.Read("disk/big"));
}

TEST_F(FaultsTest, ADiskWithoutInodesIsToldWithItsFile) {
    tree.Directory("disk");
    GivenProductScript("file=copy,svc,$pathSource$,@T@/disk\n");
    const SmallDisk disk(tree.Path("disk"), "size=1m,nr_inodes=2");
    std::ofstream(tree.Path("disk/last")) << "";
    ExpectFailure(ENOSPC, "disk/svc");
    disk.Remount(0, "size=1m,nr_inodes=20");
    ExpectWholeInstall();
}

TEST_F(FaultsTest, AFileThatIsInPlaceSurvivesADiskThatIsFull) {
    tree.Directory("disk");
    GivenProductScript("file=copy,svc,$pathSource$,@T@/disk,other\n");
    const SmallDisk disk(tree.Path("disk"), "size=64k");
    tree.Write("disk/mine", "mine");
    disk.Fill();
    ExpectFailure(ENOSPC, "disk/other");
    EXPECT_EQ(tree.Read("disk/mine"), "mine");
    disk.Free();
    ExpectWholeInstall();
}

TEST_F(FaultsTest, ADiskThatIsReadOnlyIsToldWithItsFile) {
    tree.Directory("disk");
    GivenProductScript("file=copy,svc,$pathSource$,@T@/disk\n");
    const SmallDisk disk(tree.Path("disk"), "size=1m");
    disk.Remount(MS_RDONLY, "size=1m");
    ExpectFailure(EROFS, "disk/svc");
    disk.Remount(0, "size=1m");
    ExpectWholeInstall();
}

TEST_F(FaultsTest, ARecordThatFindsNoRoomIsAnErrorAndStaysAsItWas) {
    tree.Directory("p/config");
    const SmallDisk disk(tree.Path("p/config"), "size=64k");
    const std::string former = "[installControl]\ninstalledVersion=1.0\nbuildNumber=1\n";
    GivenRecord(former + "; " + std::string(4000 - former.size(), 'x') + '\n');
    GivenScript("[install]\ndirectory=create,@T@/made\n");
    GivenProduct("2.1." + std::string(200, '0'), 37); // a longer text needs one more block
    disk.Fill();
    EXPECT_EQ(Install(), static_cast<unsigned>(ENOSPC));
    EXPECT_THAT(failure, HasSubstr("No space left on device"));
    EXPECT_EQ("1.0 1 " + tree.Path("p"), Product());
    disk.Free();
    EXPECT_EQ(Install(), 0U) << failure;
    EXPECT_EQ("2.1." + std::string(200, '0') + " 37 " + tree.Path("p"), Product());
}

TEST_F(FaultsTest, ALogThatFindsNoRoomDoesNotStopARun) {
    tree.Directory("small");
    GivenProductScript();
    const SmallDisk disk(tree.Path("small"), "size=64k");
    disk.Fill();
    std::filesystem::remove(tree.Path("log"));
    std::filesystem::create_symlink(tree.Path("small"), tree.Path("log"));
    ExpectWholeInstall();
}

// Rights and limits

/// What `action` throws in a process of its own: "CODE INFORMATION", or "nothing".
std::string InAnotherProcess(const std::function<void()>& action) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return "no pipe";
    }
    const pid_t child = ::fork();
    if (child == 0) {
        std::string answer = "nothing";
        try {
            action();
        } catch (const KSUP::KError& error) {
            answer = std::to_string(error.GetCode()) + ' ' + error.GetInfo().GetString().c_str();
        } catch (const std::exception& error) {
            answer = error.what();
        }
        ::_exit(::write(ends[1], answer.data(), answer.size()) < 0 ? 1 : 0);
    }
    ::close(ends[1]);
    std::string answer(4096, '\0');
    const ssize_t size = ::read(ends[0], answer.data(), answer.size());
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    answer.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return answer;
}

class RightsTest : public FaultsTest {
  protected:
    /// Runs one file rule without an installed run around it.
    void Copy(const char* line) {
        KINS::KInstallRuleManager manager(installer.get());
        manager.AddRule("file", InTree(line));
        manager.ExecuteRules();
    }
    static void BecomeNobody() {
        if (::setegid(65534) != 0 || ::seteuid(65534) != 0) {
            throw std::runtime_error("cannot become another user");
        }
    }
};

TEST_F(RightsTest, ADirectoryWithoutPermissionIsToldWithItsFile) {
    tree.Write("kit/a", "a");
    tree.Directory("closed", 0755);
    EXPECT_EQ("13 " + tree.Path("closed/a") + ": Permission denied", InAnotherProcess([&] {
                  BecomeNobody();
                  Copy("copy,a,@T@/kit,@T@/closed");
              }));
    EXPECT_THAT(tree.List("closed"), IsEmpty());
}

TEST_F(RightsTest, ASourceWithoutPermissionIsToldWithItsFile) {
    tree.Write("kit/a", "a", 0600);
    tree.Directory("open", 0777);
    EXPECT_EQ("13 " + tree.Path("kit/a") + ": Permission denied", InAnotherProcess([&] {
                  BecomeNobody();
                  Copy("copy,a,@T@/kit,@T@/open");
              }));
    EXPECT_THAT(tree.List("open"), IsEmpty());
}

TEST_F(RightsTest, ADeletionWithoutPermissionIsItsStatus) {
    tree.Write("closed/a", "a");
    EXPECT_THAT(
        InAnotherProcess([&] {
            BecomeNobody();
            Copy("delete,a,@T@/closed");
        }),
        ::testing::StartsWith("13")
    );
    EXPECT_TRUE(tree.Exists("closed/a"));
}

TEST_F(RightsTest, AFileSizeLimitIsToldWithItsFile) {
    tree.Write("kit/a", ArbitraryBytes(200000));
    EXPECT_EQ("27 " + tree.Path("a") + ": File too large", InAnotherProcess([&] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{100000, 100000};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  Copy("copy,a,@T@/kit,@T@");
              }));
}

TEST_F(RightsTest, AProcessWithoutFreeDescriptorsIsToldSo) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP(
    ) << "the sanitizer looks at memory through a pipe, and there is no descriptor for it";
#endif
    tree.Write("kit/a", "a");
    EXPECT_THAT(
        InAnotherProcess([&] {
            const int next = ::dup(0);
            ::close(next);
            const auto used = static_cast<rlim_t>(next);
            const rlimit limit{used, used};
            ::setrlimit(RLIMIT_NOFILE, &limit);
            Copy("copy,a,@T@/kit,@T@");
        }),
        ::testing::AllOf(::testing::StartsWith("24 "), HasSubstr("Too many open files"))
    );
}

// Names and places

struct OddPlace {
    const char* name;
    const char* rule;
    int code;
    const char* path; ///< named by the error
};

class PlaceTest : public FaultsTest, public ::testing::WithParamInterface<OddPlace> {};

TEST_P(PlaceTest, EndsTheInstallWithoutARecord) {
    tree.Write("kit/a", "a");
    tree.Directory("kit/directory");
    tree.Directory("taken/a");
    tree.Write("file", "");
    tree.Directory("p/config");
    GivenProductScript(std::string(GetParam().rule) + "\n");
    ExpectFailure(GetParam().code, GetParam().path);
}

const std::string name255(255, 'n');
const std::string name256(256, 'n');
const std::string tooLongRule = "file=copy,a,@T@/kit,@T@," + name256;

INSTANTIATE_TEST_SUITE_P(
    APlace,
    PlaceTest,
    ::testing::Values(
        OddPlace{"WhereADirectoryIs", "file=copy,a,@T@/kit,@T@/taken", EISDIR, "taken/a"},
        OddPlace{"BelowAFile", "file=copy,a,@T@/kit,@T@/file", ENOTDIR, "file/a"},
        OddPlace{"ThatIsMissing", "file=copy,a,@T@/kit,@T@/none", ENOENT, "none/a"},
        OddPlace{"WithANameOf256Bytes", tooLongRule.c_str(), ENAMETOOLONG, name256.c_str()},
        OddPlace{"WithoutASource", "file=copy,gone,@T@/kit,@T@", ENOENT, "kit/gone"}
    ),
    NameOfRow()
);

TEST_F(FaultsTest, NamesOf255BytesAndOfAnyBytesAreInstalledAndRemoved) {
    for (const std::string& name :
         {name255, std::string("new\nline"), std::string("\xff\xfe\xc3")}) {
        tree.Write("kit/odd/" + name, name);
    }
    GivenProductScript("directory=create,@T@/odd\nfile=copy,*,@T@/kit/odd,@T@/odd\n");
    ExpectWholeInstall();
    EXPECT_EQ(tree.List("kit/odd"), tree.List("odd"));
    EXPECT_EQ(tree.List("odd").size(), 3U);
}

// Things that vanish

TEST_F(FaultsTest, ASourceThatVanishesBetweenTwoFilesEndsTheInstall) {
    tree.Write("kit/many/a", "a");
    tree.Write("kit/many/b", "b");
    tree.Directory("many");
    GivenScript("[install]\nfile=copy,*,@T@/kit/many,@T@/many\n");
    statuses.At(3, [&] { tree.Remove("kit/many/b"); }); // behind the last report of the first file
    ExpectFailure(ENOENT, "kit/many/b");
    EXPECT_EQ(tree.List("many").size(), 1U);
}

TEST_F(FaultsTest, ASourceThatIsTruncatedUnderItsCopyEndsTheInstall) {
    tree.Write("kit/big", ArbitraryBytes(1000000));
    GivenScript("[install]\nfile=copy,big,@T@/kit,@T@\n");
    statuses.At(3, [&] { std::filesystem::resize_file(tree.Path("kit/big"), 10); });
    EXPECT_EQ(Install(), static_cast<unsigned>(EIO));
    EXPECT_THAT(failure, HasSubstr(tree.Path("kit/big")));
    EXPECT_EQ(Product(), "none");
}

TEST_F(FaultsTest, ATargetDirectoryThatVanishesEndsTheInstall) {
    tree.Write("kit/many/a", "a");
    tree.Write("kit/many/b", "b");
    tree.Directory("many");
    GivenScript("[install]\nfile=copy,*,@T@/kit/many,@T@/many\n");
    statuses.At(3, [&] { tree.Remove("many"); });
    ExpectFailure(ENOENT, "many/b");
}

// Cancelling and death

TEST_F(FaultsTest, AnInstallCancelledAtAnyStatusLeavesNoRecordAndTheNextOneIsWhole) {
    tree.Write("kit/big", ArbitraryBytes(200000), 0640);
    GivenProductScript("file=copy,big,$pathSource$,$pathTarget$\n");
    for (unsigned stop = 1; stop <= 15; ++stop) {
        tree.Remove("p");
        std::filesystem::remove_all(linkDirectory);
        statuses.At(statuses.All().size() + stop, [&] { installer->Stop(); });
        ASSERT_EQ(Install(), 66U) << "stopped at status " << stop;
        ASSERT_EQ(Product(), "none") << "stopped at status " << stop;
        ExpectWholeInstall();
        ASSERT_EQ(ArbitraryBytes(200000), tree.Read("p/big")) << "stopped at status " << stop;
    }
}

TEST_F(FaultsTest, AKilledInstallLeavesNoRecordAndTheNextOneIsWhole) {
    tree.Write("kit/big", ArbitraryBytes(200000), 0640);
    GivenProductScript("file=copy,big,$pathSource$,$pathTarget$\n");
    unsigned kills = 0;
    for (bool killed = true; killed; ++kills) {
        tree.Remove("p");
        std::filesystem::remove_all(linkDirectory);
        const pid_t child = ::fork();
        if (child == 0) {
            const std::size_t next = statuses.All().size() + kills + 1;
            statuses.At(next, [] { ::kill(::getpid(), SIGKILL); });
            ::_exit(Install() == 0 ? 0 : 1);
        }
        int end = 0;
        ::waitpid(child, &end, 0);
        killed = WIFSIGNALED(end);
        ASSERT_TRUE(killed || WEXITSTATUS(end) == 0) << "killed at status " << kills + 1;
        if (killed) {
            ASSERT_EQ(Product(), "none") << "killed at status " << kills + 1;
        }
        ExpectWholeInstall();
        ASSERT_EQ(ArbitraryBytes(200000), tree.Read("p/big")) << "killed at status " << kills + 1;
        ASSERT_EQ(tree.Mode("p/big"), 0640U) << "killed at status " << kills + 1;
    }
    EXPECT_EQ(kills, 16U); // 15 statuses, and the round that was not killed
}

} // namespace
