// SPDX-License-Identifier: MIT
#include "../../support/TemporaryTree.h"
#include "../../support/TraceRecorder.h"
#include "Common.h"

#include <sup++/KFile.h>

#include <cerrno>
#include <csignal>
#include <type_traits>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KFile;
using testing::ElementsAre;
using testing::IsEmpty;

class KFileTest : public testing::Test {
  protected:
    /// Copies as a rule does: chunk by chunk from the front.
    static void CopyAll(KFile& target, const KFile& source, unsigned chunkBytes = 65536) {
        unsigned long long copied = 0;
        while (copied < source.GetLength()) {
            const auto chunk = static_cast<unsigned>(
                std::min<unsigned long long>(chunkBytes, source.GetLength() - copied)
            );
            target.Copy(source, copied, chunk);
            copied += chunk;
        }
    }
    void CopyFile(const std::string& from, const std::string& to) {
        KFile source;
        KFile target;
        source.OpenForRead(tree.Path(from));
        target.Create(tree.Path(to));
        CopyAll(target, source);
        source.Close();
        target.Close();
    }
    void CreateWith(const std::string& path, const std::string& bytes) {
        tree.Write("bytes", bytes);
        CopyFile("bytes", path);
        tree.Remove("bytes");
    }
    unsigned CodeOfOpen(const std::string& relative) {
        const HangGuard guard;
        KFile file;
        return CodeOf([&] { file.OpenForRead(tree.Path(relative)); });
    }
    unsigned CodeOfCreate(const std::string& relative) {
        const HangGuard guard;
        KFile file;
        return CodeOf([&] { file.Create(tree.Path(relative)); });
    }

    TemporaryTree tree;
};

TEST_F(KFileTest, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<KFile>);
    EXPECT_FALSE(std::is_copy_assignable_v<KFile>);
}

// Opening

TEST_F(KFileTest, KnowsLengthAndModeOfWhatItOpened) {
    tree.Write("a.so", std::string(1234, 'x'), 04751);
    KFile file;
    EXPECT_EQ(file.GetLength(), 0U);
    file.OpenForRead(tree.Path("a.so"));
    EXPECT_EQ(file.GetLength(), 1234U);
    EXPECT_EQ(file.GetModeFlags(), 04751U);
}

TEST_F(KFileTest, AMissingSourceIsAnErrorThatNamesIt) {
    TraceRecorder trace;
    KFile file;
    const KError error = ErrorOf([&] { file.OpenForRead(tree.Path("missing")); });
    EXPECT_EQ(error.GetCode(), unsigned{ENOENT});
    EXPECT_EQ(error.GetInfo().GetString(), SystemInfo(tree.Path("missing"), ENOENT));
    EXPECT_THAT(trace.Messages(), testing::SizeIs(1));
}

TEST_F(KFileTest, ADirectoryIsNoSource) {
    tree.Directory("lib");
    EXPECT_EQ(CodeOfOpen("lib"), unsigned{EISDIR});
}

TEST_F(KFileTest, AFifoIsNoSourceAndDoesNotHang) {
    tree.Fifo("queue");
    EXPECT_NE(CodeOfOpen("queue"), 0U);
}

TEST_F(KFileTest, ASocketIsNoSource) {
    tree.Socket("socket");
    EXPECT_NE(CodeOfOpen("socket"), 0U);
}

TEST_F(KFileTest, ADeviceIsNoSource) {
    tree.Link("null", "/dev/null");
    EXPECT_NE(CodeOfOpen("null"), 0U);
    KFile file;
    EXPECT_NE(CodeOf([&] { file.OpenForRead("/dev/zero"); }), 0U);
}

TEST_F(KFileTest, ASourceWithoutPermissionIsAnError) {
    tree.Write("secret", "x", 0);
    unsigned code = 0;
    AsNobody([&] { code = CodeOfOpen("secret"); });
    EXPECT_EQ(code, unsigned{EACCES});
}

TEST_F(KFileTest, ASourceIsFoundThroughLinksAnywhere) {
    tree.Write("real/a.so", "bytes");
    tree.Directory("open", 0777);
    tree.Link("open/dir", "../real");
    tree.Link("open/dir2", tree.Path("open/dir"));
    tree.Link("real/b.so", "a.so");
    KFile file;
    file.OpenForRead(tree.Path("open/dir2/b.so"));
    EXPECT_EQ(file.GetLength(), 5U);
}

TEST_F(KFileTest, LinksThatTurnInACircleAreAnError) {
    tree.Link("a", "b");
    tree.Link("b", "a");
    EXPECT_EQ(CodeOfOpen("a"), unsigned{ELOOP});
    EXPECT_EQ(CodeOfCreate("a"), unsigned{ELOOP});
}

TEST_F(KFileTest, AnEmptyPathIsAnError) {
    KFile file;
    EXPECT_NE(CodeOf([&] { file.OpenForRead(""); }), 0U);
    EXPECT_NE(CodeOf([&] { file.Create(""); }), 0U);
}

TEST_F(KFileTest, AFailedOpenLeavesNoDescriptor) {
    tree.Fifo("queue");
    tree.Directory("lib");
    const std::vector<int> before = OpenDescriptors();
    KFile file;
    for (const char* name : {"queue", "lib", "missing", "lib/missing", "missing/x"}) {
        EXPECT_NE(CodeOf([&] { file.OpenForRead(tree.Path(name)); }), 0U);
        if (std::string_view(name) != "missing" && std::string_view(name) != "lib/missing") {
            EXPECT_NE(CodeOf([&] { file.Create(tree.Path(name)); }), 0U) << name;
        }
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(KFileTest, ClosesItsDescriptorsAndOnExecToo) {
    tree.Write("a", "x");
    const std::vector<int> before = OpenDescriptors();
    {
        KFile source;
        KFile target;
        source.OpenForRead(tree.Path("a"));
        target.Create(tree.Path("b"));
        for (const int number : OpenDescriptors()) {
            if (std::find(before.begin(), before.end(), number) == before.end()) {
                EXPECT_EQ(::fcntl(number, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << number;
            }
        }
        EXPECT_GE(OpenDescriptors().size(), before.size() + 2);
        source.Close();
        EXPECT_LT(OpenDescriptors().size(), before.size() + 2);
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

// Creating

TEST_F(KFileTest, ANewFileIsItsOwnersAloneUntilItsModeIsSet) {
    const UmaskGuard mask(0);
    KFile file;
    file.Create(tree.Path("new"));
    EXPECT_THAT(tree.List(), ElementsAre(R"(f 0600 new "")"));
    file.SetModeFlags(0755);
    EXPECT_EQ(tree.Mode("new"), 0755U);
    file.Close();
    EXPECT_EQ(tree.Mode("new"), 0755U);
}

TEST_F(KFileTest, ModesAreSetWhateverTheUmask) {
    const UmaskGuard mask(077);
    KFile file;
    file.Create(tree.Path("new"));
    file.SetModeFlags(06755);
    EXPECT_EQ(tree.Mode("new"), 06755U);
}

TEST_F(KFileTest, TheModeIsSetOnTheOpenFileWhateverItsPathNames) {
    KFile file;
    file.Create(tree.Path("new"));
    ASSERT_EQ(::rename(tree.Path("new").c_str(), tree.Path("moved").c_str()), 0);
    tree.Write("new", "other", 0640);
    file.SetModeFlags(0711);
    EXPECT_THAT(tree.List(), ElementsAre(R"(f 0711 moved "")", R"(f 0640 new "other")"));
}

TEST_F(KFileTest, TheModeOfAFileThatIsNotOpenIsAnError) {
    KFile file;
    EXPECT_NE(CodeOf([&] { file.SetModeFlags(0755); }), 0U);
}

TEST_F(KFileTest, AnExistingFileIsMadeAnew) {
    tree.Write("lib.so", "former", 0755);
    const auto former = tree.Status("lib.so").st_ino;
    const int reader = ::open(tree.Path("lib.so").c_str(), O_RDONLY | O_CLOEXEC);
    CreateWith("lib.so", "new");
    EXPECT_NE(tree.Status("lib.so").st_ino, former);
    EXPECT_EQ(tree.Read("lib.so"), "new");
    char bytes[8] = {};
    EXPECT_EQ(::read(reader, bytes, sizeof bytes), 6);
    EXPECT_STREQ(bytes, "former");
    ::close(reader);
}

TEST_F(KFileTest, OtherNamesOfAnExistingFileKeepItsContents) {
    tree.Write("a", "former");
    ASSERT_EQ(::link(tree.Path("a").c_str(), tree.Path("b").c_str()), 0);
    CreateWith("a", "new");
    EXPECT_EQ(tree.Read("b"), "former");
    EXPECT_EQ(tree.Read("a"), "new");
}

TEST_F(KFileTest, AMadeAnewFileKeepsItsOwner) {
    SKIP_UNLESS_ROOT("give a file away");
    tree.Write("a", "former");
    tree.SetOwner("a", 1234, 2345);
    CreateWith("a", "new");
    EXPECT_EQ(tree.Status("a").st_uid, 1234U);
    EXPECT_EQ(tree.Status("a").st_gid, 2345U);
}

TEST_F(KFileTest, AMadeAnewFileDoesNotKeepItsSetIdBits) {
    tree.Write("a", "former", 06755);
    KFile file;
    file.Create(tree.Path("a"));
    EXPECT_EQ(tree.Mode("a"), 0600U);
}

TEST_F(KFileTest, ARunningProgramIsReplaced) {
    tree.Write("program", "");
    {
        KFile source;
        KFile target;
        source.OpenForRead("/bin/sleep");
        target.Create(tree.Path("program"));
        CopyAll(target, source);
        target.SetModeFlags(0755);
    }
    const std::string path = tree.Path("program");
    std::string words[] = {path, "600"};
    char* arguments[] = {words[0].data(), words[1].data(), nullptr};
    pid_t process = 0;
    ASSERT_EQ(::posix_spawn(&process, path.c_str(), nullptr, nullptr, arguments, nullptr), 0);
    CreateWith("program", "new");
    EXPECT_EQ(tree.Read("program"), "new");
    EXPECT_EQ(::waitpid(process, nullptr, WNOHANG), 0) << "it still runs";
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
}

TEST_F(KFileTest, AMappedLibraryKeepsItsBytes) {
    const std::string bytes = ArbitraryBytes(20000);
    tree.Write("lib.so", bytes);
    const int file = ::open(tree.Path("lib.so").c_str(), O_RDONLY | O_CLOEXEC);
    void* mapped = ::mmap(nullptr, bytes.size(), PROT_READ, MAP_SHARED, file, 0);
    ASSERT_NE(mapped, MAP_FAILED);
    CreateWith("lib.so", "short");
    EXPECT_EQ(std::memcmp(mapped, bytes.data(), bytes.size()), 0);
    ::munmap(mapped, bytes.size());
    ::close(file);
}

TEST_F(KFileTest, ADirectoryIsNoTarget) {
    tree.Write("lib/inside", "x");
    EXPECT_NE(CodeOfCreate("lib"), 0U);
    EXPECT_THAT(tree.List(), ElementsAre("d 0755 lib", R"(f 0644 lib/inside "x")"));
}

TEST_F(KFileTest, AFifoIsNoTarget) {
    tree.Fifo("queue");
    EXPECT_NE(CodeOfCreate("queue"), 0U);
    EXPECT_THAT(tree.List(), ElementsAre("p 0644 queue"));
}

TEST_F(KFileTest, ASocketIsNoTarget) {
    tree.Socket("socket");
    EXPECT_NE(CodeOfCreate("socket"), 0U);
    EXPECT_EQ(tree.List().front().front(), 's');
}

TEST_F(KFileTest, ADeviceIsNoTarget) {
    SKIP_UNLESS_ROOT("make a device");
    if (::mknod(tree.Path("null").c_str(), S_IFCHR | 0666, makedev(1, 3)) != 0) {
        GTEST_SKIP() << "NOT TESTED: devices cannot be made here: " << std::strerror(errno);
    }
    EXPECT_NE(CodeOfCreate("null"), 0U);
    EXPECT_TRUE(S_ISCHR(tree.Status("null").st_mode));
}

TEST_F(KFileTest, AMissingDirectoryIsAnError) {
    KFile file;
    const KError error = ErrorOf([&] { file.Create(tree.Path("no/such/file")); });
    EXPECT_EQ(error.GetCode(), unsigned{ENOENT});
    EXPECT_EQ(error.GetInfo().GetString(), SystemInfo(tree.Path("no/such/file"), ENOENT));
}

TEST_F(KFileTest, AFileOnTheWayIsAnError) {
    tree.Write("file", "x");
    EXPECT_EQ(CodeOfCreate("file/below"), unsigned{ENOTDIR});
    EXPECT_EQ(CodeOfOpen("file/below"), unsigned{ENOTDIR});
}

TEST_F(KFileTest, ADirectoryWithoutPermissionIsAnError) {
    tree.Directory("closed", 0555);
    GiveToNobody(tree, "closed");
    unsigned code = 0;
    AsNobody([&] { code = CodeOfCreate("closed/new"); });
    EXPECT_EQ(code, unsigned{EACCES});
    EXPECT_THAT(tree.List(), ElementsAre("d 0555 closed"));
}

// Names

struct NameRow {
    const char* name;
    std::string file;

    friend void PrintTo(const NameRow& row, std::ostream* out) { *out << row.name; }
};

class KFileNameTest : public KFileTest, public testing::WithParamInterface<NameRow> {};

TEST_P(KFileNameTest, IsTakenByteForByte) {
    tree.Write("source/" + GetParam().file, "bytes");
    tree.Directory("target");
    CopyFile("source/" + GetParam().file, "target/" + GetParam().file);
    EXPECT_EQ(tree.Read("target/" + GetParam().file), "bytes");
    EXPECT_TRUE(KFile::DoesFileExist(tree.Path("target/" + GetParam().file)));
    KFile::DeleteFile(tree.Path("target/" + GetParam().file));
    EXPECT_THAT(tree.List("target"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Names,
    KFileNameTest,
    testing::ValuesIn(std::vector<NameRow>{
        {"LongestName", std::string(255, 'n')},
        {"Newline", "line\nline"},
        {"InvalidUtf8", "a\xff\xc3"},
        {"Blanks", " a b "},
        {"Hidden", ".hidden"},
        {"Dots", "..."},
        {"Dollars", "$macro$"},
        {"Pattern", "*?[a]"},
        {"Backslash", "a\\b"},
    }),
    RowName()
);

TEST_F(KFileTest, ANameOf256BytesIsAnError) {
    EXPECT_EQ(CodeOfCreate(std::string(256, 'n')), unsigned{ENAMETOOLONG});
    EXPECT_EQ(CodeOfOpen(std::string(256, 'n')), unsigned{ENAMETOOLONG});
    EXPECT_THAT(tree.List(), IsEmpty());
}

TEST_F(KFileTest, TheErrorOfAStrangeNameIsOneLine) {
    KFile file;
    const KError error = ErrorOf([&] { file.OpenForRead(tree.Path("a\nb\xff")); });
    EXPECT_EQ(error.GetInfo().GetString(), SystemInfo(tree.Path("a\nb\xff"), ENOENT));
    EXPECT_EQ(std::string(error.GetSummary().c_str()).find('\n'), std::string::npos);
}

// Links on the way to what is written

struct TrustRow {
    const char* name;
    mode_t mode;
    bool ownedByRoot;
    bool trusted;

    friend void PrintTo(const TrustRow& row, std::ostream* out) { *out << row.name; }
};

class KFileTrustTest : public KFileTest, public testing::WithParamInterface<TrustRow> {
  protected:
    void GivenTrees() {
        tree.Write("real/file", "former", 0640);
        tree.Directory("place");
        tree.Link("place/dir", "../real");
        tree.Link("place/file", "../real/file");
        if (!GetParam().ownedByRoot) {
            tree.SetOwner("place", nobodyId, nobodyId);
        }
        tree.SetMode("place", GetParam().mode);
    }
    unsigned Expected() const { return GetParam().trusted ? 0U : unsigned{ELOOP}; }
};

TEST_P(KFileTrustTest, DecidesWhetherADirectoryLinkIsFollowedForWriting) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    GivenTrees();
    EXPECT_EQ(CodeOfCreate("place/dir/new"), Expected());
    EXPECT_EQ(tree.Exists("real/new"), GetParam().trusted);
}

TEST_P(KFileTrustTest, DecidesWhetherALinkAtTheTargetIsFollowedForWriting) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    GivenTrees();
    EXPECT_EQ(CodeOfCreate("place/file"), Expected());
    EXPECT_EQ(tree.Read("real/file"), GetParam().trusted ? "" : "former");
    EXPECT_EQ(tree.LinkTarget("place/file"), "../real/file") << "the link itself stays";
}

TEST_P(KFileTrustTest, DecidesWhetherADirectoryLinkIsFollowedForDeleting) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    GivenTrees();
    EXPECT_EQ(CodeOf([&] { KFile::DeleteFile(tree.Path("place/dir/file")); }), Expected());
    EXPECT_EQ(tree.Exists("real/file"), !GetParam().trusted);
}

INSTANTIATE_TEST_SUITE_P(
    Directories,
    KFileTrustTest,
    testing::ValuesIn(std::vector<TrustRow>{
        {"RootsOwn", 0755, true, true},
        {"RootsOwnAndClosed", 0700, true, true},
        {"GroupMayWrite", 0775, true, false},
        {"OthersMayWrite", 0757, true, false},
        {"AllMayWriteButNotDelete", 01777, true, false},
        {"OfAnotherOwner", 0755, false, false},
        {"OfAnotherOwnerWhoMayNotWrite", 0555, false, false},
    }),
    RowName()
);

TEST_F(KFileTest, EveryLinkOfAChainHasToBeTrusted) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    tree.Directory("real");
    tree.Directory("open", 0777);
    tree.Link("open/second", "../real");
    tree.Link("first", "open/second");
    EXPECT_EQ(CodeOfCreate("first/new"), unsigned{ELOOP});
    EXPECT_THAT(tree.List("real"), IsEmpty());
}

TEST_F(KFileTest, AnAbsoluteTrustedLinkIsFollowed) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    tree.Directory("real");
    tree.Link("first", tree.Path("second"));
    tree.Link("second", "./real/../real/");
    EXPECT_EQ(CodeOfCreate("first/new"), 0U);
    EXPECT_TRUE(tree.Exists("real/new"));
}

TEST_F(KFileTest, AnyLinkOfAUserIsRefused) {
    tree.Directory("home/real");
    tree.Link("home/dir", "real");
    GiveToNobody(tree, "home");
    GiveToNobody(tree, "home/real");
    EXPECT_EQ(CodeOfCreate("home/dir/new"), unsigned{ELOOP});
    EXPECT_THAT(tree.List("home/real"), IsEmpty());
}

TEST_F(KFileTest, DirectoriesWithoutLinksNeedNoTrust) {
    tree.Directory("open", 0777);
    EXPECT_EQ(CodeOfCreate("open/new"), 0U);
    EXPECT_TRUE(tree.Exists("open/new"));
}

TEST_F(KFileTest, DotsOnTheWayAreTaken) {
    tree.Directory("a/b");
    EXPECT_EQ(CodeOfCreate("a/./b/../new"), 0U);
    EXPECT_EQ(CodeOfCreate("a//b///newer"), 0U);
    EXPECT_TRUE(tree.Exists("a/new"));
    EXPECT_TRUE(tree.Exists("a/b/newer"));
}

// Copying

TEST_F(KFileTest, CopiesChunkByChunk) {
    const std::string bytes = ArbitraryBytes(200000);
    tree.Write("source", bytes);
    CopyFile("source", "target");
    EXPECT_EQ(tree.Read("target"), bytes);
}

TEST_F(KFileTest, CopiesPiecesOfAnyLength) {
    const std::string bytes = ArbitraryBytes(5000);
    tree.Write("source", bytes);
    KFile source;
    KFile target;
    source.OpenForRead(tree.Path("source"));
    target.Create(tree.Path("target"));
    CopyAll(target, source, 7);
    target.Close();
    EXPECT_EQ(tree.Read("target"), bytes);
}

TEST_F(KFileTest, AppendsWhateverTheOffsetInTheSource) {
    tree.Write("source", "abcdef");
    KFile source;
    KFile target;
    source.OpenForRead(tree.Path("source"));
    target.Create(tree.Path("target"));
    target.Copy(source, 4, 2);
    target.Copy(source, 0, 1);
    target.Copy(source, 3, 0);
    target.Copy(source, 1, 2);
    target.Close();
    EXPECT_EQ(tree.Read("target"), "efabc");
}

TEST_F(KFileTest, CopiesFromSeveralSources) {
    tree.Write("one", "1111");
    tree.Write("two", "2222");
    KFile one;
    KFile two;
    KFile target;
    one.OpenForRead(tree.Path("one"));
    two.OpenForRead(tree.Path("two"));
    target.Create(tree.Path("target"));
    target.Copy(one, 0, 4);
    target.Copy(two, 2, 2);
    target.Close();
    EXPECT_EQ(tree.Read("target"), "111122");
}

TEST_F(KFileTest, CopiesFromBeyondFourGigabytes) {
    constexpr unsigned long long far = 5ULL << 30U;
    tree.Write("source", "");
    const int writer = ::open(tree.Path("source").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::pwrite(writer, "far away", 8, static_cast<off_t>(far)), 8);
    ::close(writer);
    KFile source;
    KFile target;
    source.OpenForRead(tree.Path("source"));
    target.Create(tree.Path("target"));
    target.Copy(source, far, 8);
    target.Close();
    EXPECT_EQ(source.GetLength(), far + 8);
    EXPECT_EQ(tree.Read("target"), "far away");
}

TEST_F(KFileTest, CopiesFromAnotherFileSystem) {
    const std::string bytes = ArbitraryBytes(150000);
    const int memory = ::memfd_create("source", MFD_CLOEXEC);
    ASSERT_EQ(::write(memory, bytes.data(), bytes.size()), 150000);
    KFile source;
    KFile target;
    source.OpenForRead("/proc/self/fd/" + std::to_string(memory));
    target.Create(tree.Path("target"));
    CopyAll(target, source);
    target.Close();
    ::close(memory);
    EXPECT_EQ(tree.Read("target"), bytes);
}

TEST_F(KFileTest, AnEmptySourceGivesAnEmptyTarget) {
    tree.Write("source", "");
    CopyFile("source", "target");
    EXPECT_EQ(tree.Read("target"), "");
}

TEST_F(KFileTest, CopyingOntoItselfKeepsTheContents) {
    const std::string bytes = ArbitraryBytes(100000);
    tree.Write("a", bytes);
    CopyFile("a", "a");
    EXPECT_EQ(tree.Read("a"), bytes);
    EXPECT_THAT(tree.List(), testing::SizeIs(1));
}

TEST_F(KFileTest, ASourceThatShrinksIsAnError) {
    tree.Write("source", std::string(100000, 'x'));
    KFile source;
    KFile target;
    source.OpenForRead(tree.Path("source"));
    target.Create(tree.Path("target"));
    target.Copy(source, 0, 65536);
    ASSERT_EQ(::truncate(tree.Path("source").c_str(), 70000), 0);
    EXPECT_EQ(CodeOf([&] { target.Copy(source, 65536, 34464); }), unsigned{EIO});
}

TEST_F(KFileTest, ASourceThatGrowsIsCopiedAsLongAsItWas) {
    tree.Write("source", "abc");
    KFile source;
    source.OpenForRead(tree.Path("source"));
    tree.Write("source", "abcdef");
    KFile target;
    target.Create(tree.Path("target"));
    CopyAll(target, source);
    target.Close();
    EXPECT_EQ(tree.Read("target"), "abc");
}

TEST_F(KFileTest, ASourceThatVanishesIsStillCopied) {
    tree.Write("source", "abc");
    KFile source;
    source.OpenForRead(tree.Path("source"));
    tree.Remove("source");
    KFile target;
    target.Create(tree.Path("target"));
    CopyAll(target, source);
    EXPECT_EQ(tree.Read("target"), "abc");
}

TEST_F(KFileTest, CopyingWithoutAnOpenFileIsAnError) {
    tree.Write("source", "abc");
    KFile closed;
    KFile source;
    KFile target;
    source.OpenForRead(tree.Path("source"));
    target.Create(tree.Path("target"));
    EXPECT_NE(CodeOf([&] { target.Copy(closed, 0, 1); }), 0U);
    EXPECT_NE(CodeOf([&] { closed.Copy(source, 0, 1); }), 0U);
    EXPECT_NE(CodeOf([&] { source.Copy(source, 0, 1); }), 0U) << "open for reading only";
    EXPECT_EQ(tree.Read("source"), "abc");
}

TEST_F(KFileTest, AFullDiskIsAnErrorThatNamesTheFile) {
    tree.Write("source", std::string(200000, 'x'));
    const std::string expected = SystemInfo(tree.Path("target"), EFBIG);
    const int status = InChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{100000, 100000};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const KError error = ErrorOf([&] { CopyFile("source", "target"); });
        return error.GetCode() == EFBIG && error.GetInfo().GetString() == expected ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(tree.Status("target").st_size, 100000) << "short writes were continued";
}

// Deleting and asking

TEST_F(KFileTest, DeletesFilesAndLinksAndNothingBehindThem) {
    tree.Write("file", "x");
    tree.Write("kept", "x");
    tree.Link("link", "kept");
    tree.Link("dangling", "nowhere");
    tree.Fifo("queue");
    for (const char* name : {"file", "link", "dangling", "queue"}) {
        KFile::DeleteFile(tree.Path(name));
    }
    EXPECT_THAT(tree.List(), ElementsAre(R"(f 0644 kept "x")"));
}

TEST_F(KFileTest, DeletingAMissingFileIsAnError) {
    const KError error = ErrorOf([&] { KFile::DeleteFile(tree.Path("missing")); });
    EXPECT_EQ(error.GetCode(), unsigned{ENOENT});
    EXPECT_EQ(error.GetInfo().GetString(), SystemInfo(tree.Path("missing"), ENOENT));
}

TEST_F(KFileTest, NeverDeletesADirectory) {
    tree.Directory("empty");
    tree.Link("link", "empty");
    EXPECT_NE(CodeOf([&] { KFile::DeleteFile(tree.Path("empty")); }), 0U);
    EXPECT_NE(CodeOf([&] { KFile::DeleteFile(tree.Path("empty/")); }), 0U);
    EXPECT_NE(CodeOf([&] { KFile::DeleteFile(tree.Path("empty/.")); }), 0U);
    EXPECT_TRUE(tree.Exists("empty"));
}

TEST_F(KFileTest, TellsWhatExists) {
    tree.Write("file", "x");
    tree.Directory("lib");
    tree.Fifo("queue");
    tree.Link("to-file", "file");
    tree.Link("dangling", "nowhere");
    for (const char* name : {"file", "lib", "lib/", "queue", "to-file"}) {
        EXPECT_TRUE(KFile::DoesFileExist(tree.Path(name))) << name;
    }
    for (const char* name : {"missing", "dangling", "file/below", "lib/missing"}) {
        EXPECT_FALSE(KFile::DoesFileExist(tree.Path(name))) << name;
    }
    EXPECT_FALSE(KFile::DoesFileExist(""));
}

TEST_F(KFileTest, QuestionsAndDeletionsLeaveNoDescriptor) {
    tree.Write("file", "x");
    tree.Directory("lib");
    const std::vector<int> before = OpenDescriptors();
    KFile::DoesFileExist(tree.Path("file"));
    KFile::DeleteFile(tree.Path("file"));
    EXPECT_NE(CodeOf([&] { KFile::DeleteFile(tree.Path("lib")); }), 0U);
    EXPECT_NE(CodeOf([&] { KFile::DeleteFile(tree.Path("lib/missing/x")); }), 0U);
    EXPECT_EQ(OpenDescriptors(), before);
}

} // namespace
} // namespace KTEST
