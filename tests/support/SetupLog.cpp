// SPDX-License-Identifier: MIT
#include "SetupLog.h"

#include <fstream>
#include <regex>
#include <stdexcept>

namespace KTEST {

std::vector<std::string> LogEntries(const std::string& path) {
    static const std::regex time(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)");
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("there is no setup log " + path);
    }
    std::vector<std::string> entries;
    for (std::string line; std::getline(file, line);) {
        const std::size_t tab = line.rfind('\t');
        const bool timed = tab != std::string::npos && std::regex_match(line.substr(tab + 1), time);
        entries.push_back(timed ? line.substr(0, tab) : "(no time) " + line);
    }
    return entries;
}

std::vector<std::string>
EntriesAfter(const std::string& start, const std::vector<std::string>& all) {
    std::vector<std::string> found;
    for (const std::string& entry : all) {
        if (entry.starts_with(start)) {
            found.push_back(entry.substr(start.size()));
        }
    }
    return found;
}

} // namespace KTEST
