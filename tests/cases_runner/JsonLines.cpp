// SPDX-License-Identifier: MIT
#include "JsonLines.h"

#include <sstream>

#include <nlohmann/json.hpp>

namespace KTEST {

namespace {

constexpr std::size_t longestLine = 120;

} // namespace

std::vector<std::string> ReadableJson(const std::vector<std::string>& lines) {
    std::vector<std::string> readable;
    for (const std::string& line : lines) {
        // Ordered: the fields stay in the order in which they came.
        const auto value = nlohmann::ordered_json::parse(line, nullptr, false);
        if (value.is_discarded()) {
            readable.push_back("no JSON: " + line);
            continue;
        }
        if (line.size() <= longestLine) {
            readable.push_back(line);
            continue;
        }
        std::istringstream text(value.dump(2));
        for (std::string part; std::getline(text, part);) {
            readable.push_back(part);
        }
    }
    return readable;
}

} // namespace KTEST
