// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace KTEST {

/// Throws   std::system_error with errno for the result of a call that failed
inline void Check(long result, const std::string& what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/// All `from` become `to`.
inline std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
    return text;
}

} // namespace KTEST
