// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/run/KCommandOutput.h>
#include <sup++/SvcProcess.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

namespace KSETUP {

namespace {

/// In bytes, 0 for a file that is missing.
std::uintmax_t SizeOf(const std::string& path) {
    std::error_code failed;
    const std::uintmax_t size = std::filesystem::file_size(path, failed);
    return failed ? 0 : size;
}

/// Of which one ends a sequence that begins with ESC and "[".
constexpr std::string_view finalBytes =
    "@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~";
constexpr std::uintmax_t mostTailBytes = 2048;
constexpr std::size_t mostTailLines = 10;

/// Without what sets colours or moves the cursor (ECMA-48), and without what was drawn over.
std::string AsShown(std::string_view line) {
    while (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    line.remove_prefix(line.rfind('\r') + 1); // npos is the one before 0
    std::string shown;
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (line[at] == '\x1b' && at + 1 < line.size() && line[at + 1] == '[') {
            at = std::min(line.find_first_of(finalBytes, at + 2), line.size());
        } else {
            shown += line[at] == '\t' ? ' ' : line[at];
        }
    }
    return shown;
}

} // namespace

void KCommandOutput::Begin(const std::string& file) {
    path = file;
    sizeBefore = SizeOf(path);
    if (const unsigned status = SvcSetCommandOutput(path.c_str()); status != 0) {
        throw KSetupFailure(
            ExitCode::internal, std::generic_category().message(static_cast<int>(status))
        );
    }
}

std::string KCommandOutput::FindWritten() const {
    // Another size, not only a larger one: somebody may have emptied the file meanwhile.
    const std::uintmax_t size = SizeOf(path);
    return size == 0 || size == sizeBefore ? "" : path;
}

void KCommandOutput::BeginRule() noexcept {
    std::error_code failed; // then it is not there yet
    const std::uintmax_t size = std::filesystem::file_size(path, failed);
    ruleBegin.store(failed ? 0 : size, std::memory_order_relaxed);
}

std::vector<std::string> KCommandOutput::ReadRuleEnd() const {
    const std::uintmax_t size = SizeOf(path);
    const std::uintmax_t told = ruleBegin.load(std::memory_order_relaxed);
    const std::uintmax_t begin = told <= size ? told : 0; // else somebody emptied it meanwhile
    const std::uintmax_t first = size - std::min(size - begin, mostTailBytes);
    std::string text(static_cast<std::size_t>(size - first), '\0');
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(first));
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (first != begin) {
        const std::size_t next = std::min(text.find('\n'), text.size() - 1) + 1;
        text = next < text.size() ? text.substr(next) : "…" + text;
    }
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(AsShown(line));
    }
    lines.erase(
        lines.begin(),
        lines.end() - static_cast<std::ptrdiff_t>(std::min(lines.size(), mostTailLines))
    );
    return lines;
}

} // namespace KSETUP
