// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/NameOfRow.h"
#include "../../../support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include <fcntl.h>
#include <sys/files/FileContent.h>
#include <sys/files/FileLock.h>
#include <sys/files/FileStatus.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace KTEST {
namespace {

using namespace KSYS;
using ::testing::ElementsAre;

/// A file "from" and an empty one "to", open.
class FileContentTest : public ::testing::Test {
  protected:
    void GivenFiles(const std::string& bytes) {
        tree.Write("from", bytes);
        struct stat status {};
        ASSERT_EQ(OpenRegularEntry(tree.Path("from"), O_RDONLY, from, status), 0U);
        ASSERT_EQ(MakeFile(tree.Path("to"), to, O_RDWR), 0U);
    }
    TemporaryTree tree;
    KDescriptor from;
    KDescriptor to;
};

TEST_F(FileContentTest, ACopyHasAllBytes) {
    const std::string bytes = ArbitraryBytes(200001);
    GivenFiles(bytes);
    EXPECT_EQ(CopyContent(from.Get(), to.Get(), CopyWay::Any), 0U);
    EXPECT_EQ(tree.Read("to"), bytes);
}

TEST_F(FileContentTest, HolesStayHoles) {
    const std::string bytes = ArbitraryBytes(5000);
    GivenFiles(bytes);
    const int source = ::open(tree.Path("from").c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    ASSERT_EQ(::pwrite(source, bytes.data(), bytes.size(), 1'000'000), 5000);
    ASSERT_EQ(Truncate(source, 3'000'001), 0U);
    ::close(source);
    struct stat status {};
    ASSERT_EQ(ReadStatus(from.Get(), status), 0U);
    if (status.st_blocks * 512 > 1'000'000) {
        GTEST_SKIP() << "the file system here has no holes";
    }
    EXPECT_EQ(CopyContent(from.Get(), to.Get(), CopyWay::Any), 0U);
    EXPECT_EQ(tree.Read("to"), tree.Read("from"));
    ASSERT_EQ(ReadStatus(to.Get(), status), 0U);
    EXPECT_LT(status.st_blocks * 512, 1'000'000);
}

TEST_F(FileContentTest, AReflinkIsMadeOrRefusedWithoutAByte) {
    GivenFiles("bytes");
    const unsigned status = CopyContent(from.Get(), to.Get(), CopyWay::ReflinkOnly);
    EXPECT_EQ(tree.Read("to"), status == 0 ? "bytes" : "");
}

struct TransferRow {
    const char* name;
    const char* call;
    int error; ///< 0 for a short transfer
    bool succeeds;
};

class CopyContentTransferTest : public FileContentTest,
                                public ::testing::WithParamInterface<TransferRow> {};

TEST_P(CopyContentTransferTest, IsContinuedOrTold) {
    const TransferRow& row = GetParam();
    const std::string bytes = ArbitraryBytes(200001);
    GivenFiles(bytes);
    if (CopyContent(from.Get(), to.Get(), CopyWay::ReflinkOnly) == 0) {
        GTEST_SKIP() << "reflinks transfer nothing here";
    }
    failcall_arm(row.call, 2, row.error, 0);
    const unsigned status = CopyContent(from.Get(), to.Get(), CopyWay::Any);
    EXPECT_GE(failcall_disarm(), 2U);
    EXPECT_EQ(status, row.succeeds ? 0U : static_cast<unsigned>(row.error));
    EXPECT_EQ(tree.Read("to") == bytes, row.succeeds);
}

INSTANTIATE_TEST_SUITE_P(
    OfACall,
    CopyContentTransferTest,
    ::testing::Values(
        TransferRow{"ShortRead", "read", 0, true},
        TransferRow{"ShortWrite", "write", 0, true},
        TransferRow{"InterruptedRead", "read", EINTR, true},
        TransferRow{"InterruptedWrite", "write", EINTR, true},
        TransferRow{"FailedRead", "read", EIO, false},
        TransferRow{"FailedWrite", "write", ENOSPC, false}
    ),
    NameOfRow()
);

TEST_F(FileContentTest, ExtendedAttributesAreCopied) {
    GivenFiles("");
    if (::setxattr(tree.Path("from").c_str(), "user.test", "value", 5, 0) != 0) {
        GTEST_SKIP() << "no extended attributes here";
    }
    ASSERT_EQ(CopyExtendedAttributes(from.Get(), to.Get()), 0U);
    char value[16] = {};
    EXPECT_EQ(::getxattr(tree.Path("to").c_str(), "user.test", value, sizeof(value)), 5);
    EXPECT_STREQ(value, "value");
}

TEST_F(FileContentTest, BytesAreWrittenAtAnOffset) {
    GivenFiles("");
    ASSERT_EQ(WriteAt(to.Get(), "abcdef", 6, 0), 0U);
    EXPECT_EQ(WriteAt(to.Get(), "XY", 2, 1), 0U);
    EXPECT_EQ(tree.Read("to"), "aXYdef");
    EXPECT_EQ(Truncate(to.Get(), 2), 0U);
    EXPECT_EQ(tree.Read("to"), "aX");
}

TEST_F(FileContentTest, AttributesAreSetOnAFileAndOnALinkItself) {
    GivenFiles("");
    tree.Link("link", "to");
    const timespec then{1000000, 7};
    EXPECT_EQ(SetMode(to.Get(), 0666), 0U);
    EXPECT_EQ(SetTime(to.Get(), timespec{2000000, 0}), 0U);
    EXPECT_EQ(SetOwnerAndTime(tree.Path("link"), ::geteuid(), ::getegid(), then), 0U);
    EXPECT_EQ(tree.Mode("to"), 0666U);
    EXPECT_EQ(tree.Status("to").st_mtim.tv_sec, 2000000);
    EXPECT_EQ(tree.Status("link").st_mtim.tv_sec, 1000000);
    EXPECT_EQ(tree.Status("link").st_mtim.tv_nsec, 7);
}

TEST_F(FileContentTest, AFlushThatFailsIsTold) {
    GivenFiles("");
    EXPECT_EQ(Flush(to.Get()), 0U);
    failcall_arm("fsync", 1, EIO, 0);
    EXPECT_EQ(Flush(to.Get()), unsigned{EIO});
    failcall_arm("syncfs", 1, ENOSPC, 0);
    EXPECT_EQ(FlushFileSystem(to.Get()), unsigned{ENOSPC});
    failcall_disarm();
}

TEST_F(FileContentTest, AClosedDescriptorIsKnown) {
    GivenFiles("");
    const int number = to.Get();
    EXPECT_TRUE(IsOpenDescriptor(number));
    to.Reset();
    EXPECT_FALSE(IsOpenDescriptor(number));
}

TEST_F(FileContentTest, ALockIsHeldByOneOpeningOrSharedByMany) {
    GivenFiles("");
    KDescriptor other;
    ASSERT_EQ(OpenEntry(tree.Path("to"), O_RDONLY, other), 0U);
    EXPECT_EQ(TryLockFile(to.Get(), LockKind::Exclusive), 0U);
    EXPECT_EQ(TryLockFile(other.Get(), LockKind::Shared), unsigned{EWOULDBLOCK});
    EXPECT_EQ(TryLockFile(to.Get(), LockKind::Shared), 0U);
    EXPECT_EQ(TryLockFile(other.Get(), LockKind::Shared), 0U);
}

TEST_F(FileContentTest, ALockThatIsInterruptedIsTriedAgain) {
    GivenFiles("");
    failcall_arm("flock", 1, EINTR, 0);
    const unsigned status = TryLockFile(to.Get(), LockKind::Exclusive);
    failcall_disarm();
    EXPECT_EQ(status, 0U);
}

TEST_F(FileContentTest, AFileIsOwnAloneWhenNobodyElseMayWriteToIt) {
    tree.Write("a", "");
    EXPECT_TRUE(IsOwnAlone(tree.Status("a")));
    tree.SetMode("a", 0664);
    EXPECT_FALSE(IsOwnAlone(tree.Status("a")));
    EXPECT_TRUE(IsOwn(tree.Status("a")));
    EXPECT_FALSE(IsSameFile(tree.Status("a"), tree.Status("")));
    EXPECT_TRUE(IsSameFile(tree.Status("a"), tree.Status("a")));
}

TEST_F(FileContentTest, AFileSystemTellsOfItsRoom) {
    FileSystemStatus system;
    ASSERT_EQ(ReadFileSystem(tree.Path().c_str(), system), 0U);
    EXPECT_FALSE(system.isReadOnly);
    EXPECT_GT(system.blockBytes, 0U);
    EXPECT_EQ(ReadFileSystem(tree.Path("none").c_str(), system), unsigned{ENOENT});
}

} // namespace
} // namespace KTEST
