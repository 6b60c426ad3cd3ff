// SPDX-License-Identifier: MIT
#include <setup/output/KSetupLogTail.h>

#include <fstream>
#include <string_view>

namespace KSETUP {

namespace {

constexpr std::streamoff mostBytes = 65536;
constexpr std::string_view ruleMark = "Executing rule -> ";
constexpr std::string_view runMark = "Loading install script ";

} // namespace

KSetupLogTail::KSetupLogTail(const char* path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file.tellg();
    if (size > mostBytes) {
        file.seekg(size - mostBytes);
        std::string cutLine;
        std::getline(file, cutLine);
    } else if (size >= 0) {
        file.seekg(0);
    }
    for (std::string line; std::getline(file, line);) {
        line.resize(
            line.find_last_of('\t') == std::string::npos ? line.size() : line.find_last_of('\t')
        );
        if (line.find(runMark) != std::string::npos) {
            lines.clear(); // what stands before belongs to an earlier run
        }
        lines.push_back(line);
    }
}

std::string KSetupLogTail::GetLastRule() const {
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (const std::size_t at = line->find(ruleMark); at != std::string::npos) {
            return line->substr(at + ruleMark.size());
        }
    }
    return {};
}

std::vector<std::string> KSetupLogTail::GetLast(std::size_t count) const {
    const std::size_t first = lines.size() > count ? lines.size() - count : 0;
    return {lines.begin() + static_cast<std::ptrdiff_t>(first), lines.end()};
}

} // namespace KSETUP
