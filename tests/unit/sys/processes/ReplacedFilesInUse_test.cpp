// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/processes/ReplacedFilesInUse.h>
#include <unistd.h>

namespace {

/// One page of an open file.
class KMapping {
  public:
    explicit KMapping(int file) : page(::mmap(nullptr, 1, PROT_READ, MAP_SHARED, file, 0)) {
        ::close(file);
    }
    ~KMapping() { ::munmap(page, 1); }
    KMapping(const KMapping&) = delete;
    KMapping& operator=(const KMapping&) = delete;
    bool IsMade() const noexcept { return page != MAP_FAILED; }

  private:
    void* page;
};

/// The paths that this process's owner is asked about.
std::vector<std::string> Asked() {
    std::vector<std::string> paths;
    KSYS::FindReplacedFilesInUse([&](const std::string& path) {
        paths.push_back(path);
        return false;
    });
    return paths;
}

/// Who is asked may have to read much for the first answer.
TEST(ReplacedFilesInUseTest, MemoryThatProcessesShareIsNoFile) {
    KTEST::TemporaryTree tree;
    tree.Write("file", "bytes");
    const std::string path = tree.Path("file");
    const KMapping file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    tree.Remove("file");
    const int shared = ::memfd_create("shared", MFD_CLOEXEC);
    ASSERT_EQ(::ftruncate(shared, 1), 0);
    const KMapping memory(shared);
    ASSERT_TRUE(file.IsMade() && memory.IsMade());
    const std::vector<std::string> asked = Asked();
    EXPECT_EQ(std::count(asked.begin(), asked.end(), path), 1);
    EXPECT_EQ(
        std::count_if(
            asked.begin(),
            asked.end(),
            [](const std::string& one) { return one.starts_with("/memfd:"); }
        ),
        0
    );
}

} // namespace
