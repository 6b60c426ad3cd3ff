// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/files/KReadAhead.h>

#include <gtest/gtest.h>

#include <algorithm>
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
            paths.push_back(tree.Path(name));
        }
        const int directory = ::open(tree.Path().c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(::syncfs(directory), 0);
        ::close(directory);
        for (const std::string& path : paths) {
            Forget(path);
        }
    }
    /// What another processor has just had in hand stays for a moment.
    static void Forget(const std::string& path) {
        for (int tries = 0; tries < 100; ++tries) {
            const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            ASSERT_EQ(::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED), 0);
            ::close(file);
            if (!IsInMemory(path)) {
                return;
            }
            ::usleep(1000);
        }
    }
    /// Nobody waits for the disk.
    static bool ComesIntoMemory(const std::string& path) {
        for (int tries = 0; tries < 3000 && !IsInMemory(path); ++tries) {
            ::usleep(10000);
        }
        return IsInMemory(path);
    }
    std::vector<const std::string*> Ahead() const {
        std::vector<const std::string*> files;
        for (const std::string& path : paths) {
            files.push_back(&path);
        }
        return files;
    }
    bool CanForget() const { return std::none_of(paths.begin(), paths.end(), IsInMemory); }

    TemporaryTree tree;
    std::vector<std::string> paths;
};

TEST_F(KReadAheadTest, BringsFilesIntoMemoryBeforeTheirTurn) {
    GivenFiles(KReadAhead::fewestFiles);
    if (!CanForget()) {
        GTEST_SKIP() << "the file system of " << tree.Path() << " is in memory itself";
    }
    KReadAhead ahead(Ahead());
    ahead.Wait();
    EXPECT_TRUE(ComesIntoMemory(paths.front()));
    EXPECT_TRUE(ComesIntoMemory(paths.back()));
}

TEST_F(KReadAheadTest, AFewFilesAreLeftToTheCopies) {
    GivenFiles(KReadAhead::fewestFiles - 1);
    if (!CanForget()) {
        GTEST_SKIP() << "the file system of " << tree.Path() << " is in memory itself";
    }
    KReadAhead ahead(Ahead());
    ahead.Wait();
    EXPECT_FALSE(IsInMemory(paths.back()));
}

TEST_F(KReadAheadTest, GoesNoFurtherAheadThanTheCopiesLet) {
    GivenFiles(600);
    if (!CanForget()) {
        GTEST_SKIP() << "the file system of " << tree.Path() << " is in memory itself";
    }
    KReadAhead ahead(Ahead());
    EXPECT_TRUE(ComesIntoMemory(paths[500]));
    ::usleep(50000);
    EXPECT_FALSE(IsInMemory(paths.back()));
    for (int copied = 0; copied < 100; ++copied) {
        ahead.NoteCopied();
    }
    EXPECT_TRUE(ComesIntoMemory(paths.back()));
}

TEST_F(KReadAheadTest, EndsWhereNothingIsToBeWaitedFor) {
    const std::string missing = tree.Path("missing");
    KReadAhead ofMissing(std::vector<const std::string*>(5000, &missing));
    ofMissing.Wait();
    GivenFiles(600);
    KReadAhead stopped(Ahead()); // is not waited for when it is destroyed
}

} // namespace
} // namespace KTEST
