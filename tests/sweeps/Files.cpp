// SPDX-License-Identifier: MIT
#include "Files.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace KSWEEP {

namespace fs = std::filesystem;

void Write(const fs::path& path, const std::string& bytes, unsigned mode) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    fs::permissions(path, static_cast<fs::perms>(mode));
}

std::string Read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf(); // much faster than letter by letter
    return bytes.str();
}

namespace {

/// Takes the values out that stand behind a key of JSON: texts without quotes in them, and numbers. A regular
/// expression would take longer than all else of a look.
std::string Without(const std::string& text, const std::string& key) {
    std::string rest;
    std::size_t at = 0;
    for (std::size_t found = 0; (found = text.find(key, at)) != std::string::npos;) {
        rest.append(text, at, found - at);
        at = found + key.size();
        const bool isText = text.substr(at, 1) == "\"";
        at = isText ? text.find('"', at + 1) : text.find_first_not_of("0123456789", at);
        at = at == std::string::npos ? text.size() : at + (isText ? 1U : 0U); // half of a file
        at += text.substr(at, 1) == "," ? 1U : 0U;
    }
    return rest.append(text, at);
}

} // namespace

std::string ReadSteady(const fs::path& path) {
    std::string text = Read(path);
    if (!path.string().starts_with("/var/lib/ins++/")) {
        return text;
    }
    if (path.filename() == "fingerprint") { // of all of these
        return std::to_string(text.empty());
    }
    for (const char* key : {"run", "modified", "changed", "inode", "device"}) {
        text = Without(text, "\"" + std::string(key) + "\":");
    }
    return text;
}

void Shell(const std::string& line) {
    if (std::system(line.c_str()) != 0) { // NOLINT(cert-env33-c): a test's own line
        throw std::runtime_error("failed: " + line);
    }
}

} // namespace KSWEEP
