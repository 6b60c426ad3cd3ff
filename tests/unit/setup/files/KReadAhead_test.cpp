// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/files/KReadAhead.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace KTEST {
namespace {

using KSETUP::KReadAhead;

constexpr std::size_t fileBytes = 20000;

/// By mincore(2): a read that does not wait may begin to read ahead itself.
bool IsInMemory(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    void* const mapped = ::mmap(nullptr, fileBytes, PROT_READ, MAP_SHARED, file, 0);
    ::close(file);
    unsigned char pages[fileBytes / 4096 + 1] = {};
    EXPECT_EQ(::mincore(mapped, fileBytes, pages), 0);
    ::munmap(mapped, fileBytes);
    return (pages[0] & 1U) != 0;
}

/// Files on a disk, whose bytes the kernel has forgotten.
class KReadAheadTest : public ::testing::Test {
  protected:
    void GivenFiles(std::size_t count) {
        for (std::size_t number = 0; number < count; ++number) {
            const std::string name = std::to_string(number);
            tree.Write(name, std::string(fileBytes, 'x'));
            const int file = ::open(tree.Path(name).c_str(), O_RDONLY | O_CLOEXEC);
            ASSERT_EQ(::fsync(file), 0);
            ASSERT_EQ(::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED), 0);
            ::close(file);
            paths.push_back(tree.Path(name));
        }
    }
    bool CanForget() const { return !IsInMemory(paths.front()) && !IsInMemory(paths.back()); }

    TemporaryTree tree;
    std::vector<std::string> paths;
};

TEST_F(KReadAheadTest, BringsFilesIntoMemoryBeforeTheirTurn) {
    GivenFiles(KReadAhead::fewestFiles);
    if (!CanForget()) {
        GTEST_SKIP() << "the file system of " << tree.Path() << " is in memory itself";
    }
    KReadAhead ahead(paths);
    ahead.Wait();
    bool isThere = false;
    for (int tries = 0; tries < 500 && !isThere; ++tries) { // nobody waits for the disk
        isThere = IsInMemory(paths.front()) && IsInMemory(paths.back());
        ::usleep(10000);
    }
    EXPECT_TRUE(isThere);
}

TEST_F(KReadAheadTest, AFewFilesAreLeftToTheCopies) {
    GivenFiles(KReadAhead::fewestFiles - 1);
    if (!CanForget()) {
        GTEST_SKIP() << "the file system of " << tree.Path() << " is in memory itself";
    }
    KReadAhead ahead(paths);
    ahead.Wait();
    EXPECT_FALSE(IsInMemory(paths.back()));
}

TEST_F(KReadAheadTest, WaitsForTheCopiesAndEndsWithThem) {
    const std::vector<std::string> missing(5000, tree.Path("missing"));
    KReadAhead ofMissing(missing); // as good as in memory, so it ends
    ofMissing.Wait();
    GivenFiles(100);
    std::vector<std::string> many;
    for (int round = 0; round < 100; ++round) {
        many.insert(many.end(), paths.begin(), paths.end());
    }
    KReadAhead ahead(many);
    for (std::size_t copied = 0; copied < many.size(); ++copied) {
        ahead.NoteCopied();
    }
    ahead.Wait();
    KReadAhead stopped(many); // is not waited for when it is destroyed
}

} // namespace
} // namespace KTEST
