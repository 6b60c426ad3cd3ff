// SPDX-License-Identifier: MIT
#include "KFileFixture.h"

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KFile;

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

TEST_F(KFileTest, CopiesWhereTheSystemCannotCopyByItself) {
    const std::string bytes = ArbitraryBytes(200000);
    tree.Write("source", bytes);
    const int status = InChild([&] {
        RefuseSystemCall(SYS_copy_file_range);
        CopyFile("source", "target");
        KFile source;
        KFile target;
        source.OpenForRead(tree.Path("source"));
        target.Create(tree.Path("shrunken"));
        return CodeOf([&] { target.Copy(source, 199999, 2); }) == EIO ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(tree.Read("target"), bytes);
}

/// A file of `size` bytes with only these in it.
void WriteSparse(const std::string& path, off_t size, off_t at, const std::string& bytes) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    EXPECT_EQ(::pwrite(file, bytes.data(), bytes.size(), at), static_cast<ssize_t>(bytes.size()));
    EXPECT_EQ(::ftruncate(file, size), 0);
    ::close(file);
}

bool IsSparse(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && status.st_blocks * 512 < status.st_size / 2;
}

TEST_F(KFileTest, HolesStayHoles) {
    constexpr off_t size = 3'000'001;
    for (const off_t at : {off_t{0}, off_t{70000}, off_t{1'000'000}, size - 5000}) {
        WriteSparse(tree.Path("source"), size, at, ArbitraryBytes(5000));
        if (!IsSparse(tree.Path("source"))) {
            GTEST_SKIP() << "the file system here has no holes";
        }
        CopyFile("source", "target");
        EXPECT_EQ(tree.Read("target"), tree.Read("source")) << at;
        EXPECT_TRUE(IsSparse(tree.Path("target"))) << at;
    }
}

TEST_F(KFileTest, ASourceWithHolesThatShrinksIsAnError) {
    WriteSparse(tree.Path("source"), 3'000'000, 0, ArbitraryBytes(5000));
    KFile source;
    KFile target;
    source.OpenForRead(tree.Path("source"));
    target.Create(tree.Path("target"));
    ASSERT_EQ(::truncate(tree.Path("source").c_str(), 100'000), 0);
    target.Copy(source, 0, 100'000);
    EXPECT_THROW(target.Copy(source, 100'000, 65536), KError);
    EXPECT_THROW(target.Copy(source, 60'000, 65536), KError);
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

} // namespace
} // namespace KTEST
