// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KTEST {

/// A profile read the slow and simple way, to compare the library's reader with.
struct KPlainProfile {
    struct Line {
        unsigned number; ///< in the file, from 1
        std::string section;
        std::string key;
        std::string value;
    };

    explicit KPlainProfile(const std::string& bytes);

    std::vector<Line> lines;           ///< those with keys
    std::vector<std::string> comments; ///< whole lines

    using Options = std::vector<std::pair<std::string, std::string>>;
    /// The options of each section that has any, in the order of the file.
    std::map<std::string, Options> GetMeaning() const;
};

/// Without blanks and tabs at its ends.
std::string PlainTrimmed(std::string_view text);

} // namespace KTEST
