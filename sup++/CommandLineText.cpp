// SPDX-License-Identifier: MIT
#include <sup++/CommandLineText.h>

namespace KSUP::CommandLineText {

std::string Quote(const std::vector<std::string>& arguments) {
    std::string line;
    for (const std::string& argument : arguments) {
        line += line.empty() ? "\"" : " \"";
        for (const char byte : argument) {
            if (byte == '"' || byte == '\\') {
                line += '\\';
            }
            line += byte;
        }
        line += '"';
    }
    return line;
}

std::optional<std::string> Reader::Next() {
    at = line.find('"', at);
    if (at == std::string_view::npos) {
        at = line.size();
        return std::nullopt;
    }
    ++position;
    std::string argument;
    for (++at; at < line.size() && line[at] != '"'; ++at) {
        at += line[at] == '\\' && at + 1 < line.size() ? 1U : 0U;
        argument += line[at];
    }
    at += at < line.size() ? 1U : 0U;
    return argument;
}

} // namespace KSUP::CommandLineText
