// SPDX-License-Identifier: MIT
//
// Opening, making and deleting files. KFileCopy_test.cpp has the copying, KFileLinks_test.cpp which
// links are followed.
#include "../../support/NameOfRow.h"
#include "../../support/TraceRecorder.h"
#include "KFileFixture.h"

#include <cerrno>
#include <csignal>
#include <fstream>
#include <type_traits>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
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

/// Whoever lays a file there would own what is put in its place; as by cp, which writes into it.
TEST_F(KFileTest, AMadeAnewFileHasNoOwnerThatOthersCouldGiveIt) {
    SKIP_UNLESS_ROOT("give a file away");
    tree.Directory("d");
    for (const mode_t mode : {01777U, 0777U, 0775U}) {
        tree.Write("d/a", "former");
        tree.SetOwner("d/a", 1234, 2345);
        tree.SetMode("d", mode);
        std::ofstream(tree.Path("d/a")) << "new";
        EXPECT_EQ(tree.Status("d/a").st_uid, 1234U) << "the attack on a plain copy";
        CreateWith("d/a", "new");
        EXPECT_EQ(tree.Status("d/a").st_uid, 0U) << std::oct << mode;
        EXPECT_EQ(tree.Status("d/a").st_gid, 0U) << std::oct << mode;
        tree.SetMode("d", 0755);
    }
    tree.SetOwner("d/a", 1234, 2345);
    tree.SetOwner("d", 1234, 0);
    CreateWith("d/a", "new");
    EXPECT_EQ(tree.Status("d/a").st_uid, 0U);
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
    NameOfRow()
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
