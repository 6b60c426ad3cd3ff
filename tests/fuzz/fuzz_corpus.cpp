// SPDX-License-Identifier: MIT
// Feeds the targets the inputs that are kept: fuzz_corpus DIRECTORY, which has one for each target.
#include "Fuzz.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>

namespace {

namespace fs = std::filesystem;

/// How many there were. What an input ends the program with is told behind its name.
int Feed(const KTEST::KFuzzTarget& target, const fs::path& directory) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(directory)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& path : files) {
        std::cout << target.name << "/" << path.filename().string() << std::endl;
        std::ifstream file(path, std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(file), {});
        target.body(bytes);
    }
    return static_cast<int>(files.size());
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: fuzz_corpus DIRECTORY" << std::endl;
        return 64;
    }
    int passed = 0;
    int failed = 0;
    for (const KTEST::KFuzzTarget* target : KTEST::KFuzzTarget::GetAll()) {
        std::error_code missing;
        const fs::path directory = fs::path(argv[1]) / target->name;
        if (!fs::is_directory(directory, missing)) {
            std::cout << "FAILED " << target->name << ": no inputs in " << directory << std::endl;
            ++failed;
            continue;
        }
        passed += Feed(*target, directory);
    }
    std::cout << passed << " passed, " << failed << " failed" << std::endl;
    return failed == 0 ? 0 : 1;
}
