// SPDX-License-Identifier: MIT
//
// A kit of the size of a real product, made from what a machine has.
#include "MachineRig.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>

namespace {

namespace fs = std::filesystem;

constexpr std::size_t wantedFiles = 20000;
constexpr std::size_t wantedDirectories = 1000;
constexpr std::uintmax_t largestFile = 1000000;

/// A directory whose path can stand in a rule line.
bool FitsARule(const std::string& path) {
    return path.find_first_of(",$*?\n\t") == std::string::npos && path.back() != ' ';
}

/// The regular files directly in a directory that are worth copying.
std::vector<fs::path> FilesIn(const fs::path& directory) {
    std::vector<fs::path> files;
    std::error_code ignored; // a directory that cannot be read holds nothing for us
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, ignored)) {
        if (entry.is_regular_file() && !entry.is_symlink() && entry.file_size() <= largestFile) {
            files.push_back(entry.path());
        }
    }
    return files;
}

/// Copies directories with their regular files from the machine's own /usr until there are enough.
class KitFromMachine {
  public:
    explicit KitFromMachine(fs::path kitDirectory) : kit(std::move(kitDirectory)) {
        for (const char* root : {"/usr/include", "/usr/share", "/usr/lib"}) {
            Take(root);
        }
        Synthesise();
    }
    const std::vector<std::string>& Directories() const { return directories; }
    std::size_t Files() const { return files; }

  private:
    bool Enough() const { return files >= wantedFiles && directories.size() >= wantedDirectories; }

    void Take(const fs::path& root) {
        const auto options = fs::directory_options::skip_permission_denied;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root, options)) {
            if (Enough()) {
                return;
            }
            if (entry.is_directory() && !entry.is_symlink() && FitsARule(entry.path())) {
                TakeDirectory(entry.path(), entry.path().lexically_relative("/usr"));
            }
        }
    }

    void TakeDirectory(const fs::path& from, const fs::path& name) {
        const std::vector<fs::path> found = FilesIn(from);
        if (found.empty()) {
            return;
        }
        fs::create_directories(kit / name);
        for (const fs::path& file : found) {
            fs::copy_file(file, kit / name / file.filename());
        }
        files += found.size();
        directories.push_back(name);
    }

    /// What a small machine lacks is made of copies of what it has.
    void Synthesise() {
        const std::vector<std::string> real = directories;
        for (std::size_t round = 0; !Enough() && !real.empty(); ++round) {
            TakeDirectory(
                fs::path("/usr") / real[round % real.size()],
                fs::path("copy" + std::to_string(round / real.size())) / real[round % real.size()]
            );
        }
    }

    fs::path kit;
    std::vector<std::string> directories;
    std::size_t files = 0;
};

class BigTreeTest : public KTEST::MachineTest {};

TEST_F(BigTreeTest, ATreeOf20000FilesIn1000DirectoriesIsInstalledByteForByteAndModeForMode) {
    GivenProduct("2.1", 37);
    tree.Directory("tree");
    const KitFromMachine kit(tree.Path("tree"));
    ASSERT_LE(wantedFiles, kit.Files());
    ASSERT_LE(wantedDirectories, kit.Directories().size());
    std::string script = "[install]\n";
    for (const std::string& directory : kit.Directories()) {
        script += "directory=create,@T@/target/" + directory + '\n';
        script += "file=copy,*,@T@/tree/" + directory + ",@T@/target/" + directory + '\n';
    }
    GivenRecord("");
    GivenScript(script);
    installer->SetCallback({}); // 60,000 statuses are of no use here
    Initialize();
    const unsigned rules = static_cast<unsigned>(2 * kit.Directories().size());
    installer->StartInstall(tree.Path("p"));
    ASSERT_EQ(CodeOfEnd(), 0U) << failure;
    EXPECT_EQ(installer->GetMaxCount(), rules);
    EXPECT_EQ(installer->GetCompletedCount(), rules);
    EXPECT_EQ("2.1 37 " + tree.Path("p"), Product());
    // Lists hold names, modes and digests of all contents.
    const std::vector<std::string> source = tree.List("tree");
    const std::vector<std::string> target = tree.List("target");
    EXPECT_LE(wantedFiles + wantedDirectories, source.size());
    const auto [left, right] =
        std::mismatch(source.begin(), source.end(), target.begin(), target.end());
    EXPECT_EQ(source.end(), left) << "first difference: " << *left;
    EXPECT_EQ(target.end(), right);
    std::cout << kit.Files() << " files in " << kit.Directories().size() << " directories\n";
}

} // namespace
