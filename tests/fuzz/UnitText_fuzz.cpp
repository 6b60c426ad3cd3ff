// SPDX-License-Identifier: MIT
// The unit file that a service rule makes: whatever its fields are, it has the lines that it is to
// have and none besides, and systemd's way of reading the command gives the arguments that were meant.
#include "Fuzz.h"

#include <algorithm>

#include <sys/services/KServiceError.h>
#include <sys/services/UnitText.h>

namespace {

using KTEST::Require;

/// The words of a command as systemd.service(5) has it: quotes, backslashes, "%%" and "$$".
std::vector<std::string> SystemdWords(const std::string& command) {
    std::vector<std::string> words;
    for (std::size_t at = 0; at < command.size(); ++at) {
        std::string word;
        const bool isQuoted = command[at] == '"';
        at += isQuoted ? 1 : 0;
        for (; at < command.size() && command[at] != (isQuoted ? '"' : ' '); ++at) {
            const char byte = command[at];
            if (byte == '\\' && at + 1 < command.size()) {
                ++at;
                if (command[at] == 'x') {
                    word += static_cast<char>(std::stoi(command.substr(at + 1, 2), nullptr, 16));
                    at += 2;
                } else {
                    word += command[at];
                }
                continue;
            }
            // In the program's own path systemd replaces no variables.
            if (byte == '%' || (byte == '$' && !words.empty())) {
                ++at;
                Require(at < command.size() && command[at] == byte, "nothing is left to expand");
            }
            word += byte;
        }
        Require(!isQuoted || at < command.size(), "a quote is closed");
        at += isQuoted ? 1 : 0;
        Require(at >= command.size() || command[at] == ' ', "words are apart");
        words.push_back(word);
    }
    return words;
}

const char* const wanted[] = {
    "[Unit]",
    "Description=",
    "After=network.target",
    "[Service]",
    "Type=exec",
    "ExecStart=",
    "Restart=on-failure",
    "[Install]",
    "WantedBy=multi-user.target",
};

/// The lines that mean something are those that were asked for, in this order. Gives the command.
std::string RequireLines(const std::string& text, bool hasDescription) {
    std::string command;
    std::size_t next = 0;
    for (const std::string& line : KTEST::PiecesOf(text, '\n')) {
        Require(line.empty() || line.back() != '\\', "no line goes on in the next one");
        if (line.empty() || line[0] == '#') {
            continue;
        }
        next += next == 1 && !hasDescription ? 1 : 0;
        Require(next < std::size(wanted), "there is no line that was not asked for");
        const std::string begin = wanted[next++];
        const bool isOpen = begin.back() == '=';
        Require(
            isOpen ? line.starts_with(begin) : line == begin,
            "each line is the one that it is to be"
        );
        command = begin == "ExecStart=" ? line.substr(begin.size()) : command;
    }
    Require(next == std::size(wanted), "all lines are there");
    return command;
}

} // namespace

/// The display name, the program and the arguments of a service rule.
FUZZ_TARGET(UnitText) {
    const std::vector<std::string> fields = KTEST::PiecesOf(input, std::size_t{3});
    const std::string name = KSYS::WhyNotAServiceName(fields[0]);
    Require(
        !name.empty() || fields[0].find_first_of("/ \n%\"'") == std::string::npos,
        "a service's name is one word of a unit"
    );
    std::string text;
    std::vector<std::string> meant;
    try {
        text = KSYS::UnitText(fields[0], fields[1], fields[2]);
        meant = KSYS::SplitArguments(fields[2]);
    } catch (const KSYS::KServiceError&) {
        return;
    }
    Require(KSYS::IsOurUnitText(text), "it is known again");
    const std::string command = RequireLines(text, !fields[0].empty());
    std::vector<std::string> words = SystemdWords(command);
    if (words.at(0).starts_with('@')) {
        words[0].erase(0, 1);
        Require(words.at(1) == fields[1], "the program gets its path as it is");
        words.erase(words.begin() + 1);
    }
    Require(words[0] == fields[1], "the program is the one that was named");
    words.erase(words.begin());
    Require(words == meant, "the arguments are those that were meant");
    const std::vector<std::string> read = KSYS::UnitValues(text, "Service", "ExecStart");
    Require(read.size() == 1 && read[0] == command, "our own reader reads it, too");
}
