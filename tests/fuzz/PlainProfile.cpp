// SPDX-License-Identifier: MIT
#include "PlainProfile.h"

#include <sstream>

namespace KTEST {

std::string PlainTrimmed(std::string_view text) {
    std::string trimmed(text);
    while (!trimmed.empty() && (trimmed.front() == ' ' || trimmed.front() == '\t')) {
        trimmed.erase(0, 1);
    }
    while (!trimmed.empty() && (trimmed.back() == ' ' || trimmed.back() == '\t')) {
        trimmed.pop_back();
    }
    return trimmed;
}

KPlainProfile::KPlainProfile(const std::string& bytes) {
    std::string rest = bytes;
    if (rest.substr(0, 3) == "\xEF\xBB\xBF") {
        rest.erase(0, 3);
    }
    std::istringstream stream(rest);
    std::string section;
    std::string line;
    for (unsigned number = 1; std::getline(stream, line); ++number) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        const std::string bare = PlainTrimmed(line);
        if (bare.empty()) {
            continue;
        }
        if (bare[0] == ';' || bare[0] == '#') {
            comments.push_back(line);
        } else if (bare.size() > 1 && bare[0] == '[' && bare[bare.size() - 1] == ']') {
            section = PlainTrimmed(bare.substr(1, bare.size() - 2));
        } else {
            const std::size_t equals = line.find('=');
            lines.push_back(
                {number,
                 section,
                 PlainTrimmed(line.substr(0, equals)),
                 equals == std::string::npos ? "" : PlainTrimmed(line.substr(equals + 1))}
            );
        }
    }
}

std::map<std::string, KPlainProfile::Options> KPlainProfile::GetMeaning() const {
    std::map<std::string, Options> meaning;
    for (const Line& line : lines) {
        meaning[line.section].emplace_back(line.key, line.value);
    }
    return meaning;
}

} // namespace KTEST
