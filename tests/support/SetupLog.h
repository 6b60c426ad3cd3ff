// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KTEST {

/// The entries of a setup log, each without its tab and time. A line that has no tab, or whose time
/// is not one, comes whole with "(no time) " in front, so that no comparison passes it by.
///
/// Throws   std::runtime_error when there is no such file
std::vector<std::string> LogEntries(const std::string& path);

/// The entries of `all` that begin with `start`, without it.
std::vector<std::string>
EntriesAfter(const std::string& start, const std::vector<std::string>& all);

} // namespace KTEST
