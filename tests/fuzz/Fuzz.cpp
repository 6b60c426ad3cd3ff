// SPDX-License-Identifier: MIT
#include "Fuzz.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>

#include <sys/stat.h>

namespace KTEST {

namespace {

namespace fs = std::filesystem;

} // namespace

void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "FAILED: %s\n", what);
        std::abort();
    }
}

std::vector<std::string> PiecesOf(std::string_view input, char separator) {
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at != std::string_view::npos;) {
        const std::size_t end = input.find(separator, at);
        pieces.emplace_back(input.substr(at, end - at));
        at = end == std::string_view::npos ? end : end + 1;
    }
    return pieces;
}

std::vector<std::string> PiecesOf(std::string_view input, std::size_t count) {
    std::vector<std::string> pieces = PiecesOf(input);
    pieces.resize(count);
    return pieces;
}

std::string UpToNul(const std::string& text) {
    return text.c_str();
}

KScratchDirectory::KScratchDirectory() : path(fs::temp_directory_path() / "inspp-fuzz-XXXXXX") {
    Require(::mkdtemp(path.data()) != nullptr, "no scratch directory could be made");
}

KScratchDirectory::~KScratchDirectory() {
    std::error_code ignored; // it is in memory, and nobody's
    fs::remove_all(path, ignored);
}

void KScratchDirectory::Write(const std::string& name, std::string_view bytes, unsigned mode)
    const {
    const fs::path file = fs::path(path) / name;
    if (!fs::exists(file)) {
        fs::create_directories(file.parent_path());
    }
    std::FILE* const opened = std::fopen(file.c_str(), "w");
    Require(opened != nullptr, "no file could be made in the scratch directory");
    const std::size_t written = std::fwrite(bytes.data(), 1, bytes.size(), opened);
    Require(std::fclose(opened) == 0 && written == bytes.size(), "a scratch file is not whole");
    Require(::chmod(file.c_str(), mode) == 0, "a scratch file has another mode");
}

std::string KScratchDirectory::Describe() const {
    std::vector<std::string> entries;
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
        std::string one = entry.path().string();
        if (entry.is_symlink()) {
            one += " -> " + fs::read_symlink(entry.path()).string();
        } else if (entry.is_regular_file()) {
            std::ifstream file(entry.path(), std::ios::binary);
            one += ": " + std::string(std::istreambuf_iterator<char>(file), {});
        }
        entries.push_back(std::move(one));
    }
    std::sort(entries.begin(), entries.end());
    std::string all;
    for (const std::string& entry : entries) {
        all += entry + "\n";
    }
    return all;
}

KMutedOutput::KMutedOutput() : output(std::cout.rdbuf(nullptr)), errors(std::cerr.rdbuf(nullptr)) {}

KMutedOutput::~KMutedOutput() {
    std::cout.rdbuf(output);
    std::cerr.rdbuf(errors);
    std::cout.clear();
    std::cerr.clear();
}

KFuzzTarget::KFuzzTarget(const char* targetName, FuzzBody targetBody)
    : name(targetName),
      body(targetBody) {
    GetAll().push_back(this);
}

std::vector<const KFuzzTarget*>& KFuzzTarget::GetAll() {
    static std::vector<const KFuzzTarget*> all;
    return all;
}

} // namespace KTEST
