// SPDX-License-Identifier: MIT
#include "CaseFile.h"

#include "../support/TemporaryTree.h"

#include <cstdio>
#include <fstream>
#include <regex>

namespace KTEST {

namespace {

constexpr std::size_t longestShownContents = 80; // as TemporaryTree::List

std::string Unescaped(const std::string& text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\' || at + 1 == text.size()) {
            bytes += text[at];
            continue;
        }
        const char kind = text[++at];
        if (kind == 'x' && at + 2 < text.size()) {
            bytes += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
            at += 2;
        } else {
            bytes += kind == 'n' ? '\n' : kind == 't' ? '\t' : kind;
        }
    }
    return bytes;
}

} // namespace

void CaseFile::Refuse(unsigned lineNumber, const std::string& why) const {
    throw CaseError(path + ':' + std::to_string(lineNumber) + ": " + why);
}

CaseFile CaseFile::Load(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw CaseError(path + ": cannot be read");
    }
    CaseFile result{path, {}};
    unsigned number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.starts_with("== ")) {
            const std::size_t blank = line.find(' ', 3);
            const bool bare = blank == std::string::npos;
            result.sections.push_back(
                {line.substr(3, bare ? blank : blank - 3),
                 bare ? "" : line.substr(blank + 1),
                 {},
                 number}
            );
        } else if (!result.sections.empty()) {
            result.sections.back().lines.push_back(line);
        } else if (!line.empty()) {
            result.Refuse(number, "the file begins with a heading, such as '== describe'");
        }
    }
    for (CaseSection& section : result.sections) {
        while (!section.lines.empty() && section.lines.back().empty()) {
            section.lines.pop_back();
        }
    }
    return result;
}

void CaseFile::Save() const {
    std::ofstream file(path, std::ios::trunc);
    const char* gap = "";
    for (const CaseSection& section : sections) {
        file << gap << "== " << section.name;
        file << (section.arguments.empty() ? "" : " ") << section.arguments << '\n';
        for (const std::string& line : section.lines) {
            file << line << '\n';
        }
        gap = "\n";
    }
    file.close();
    if (!file) {
        throw CaseError(path + ": cannot be written");
    }
}

TreeLine TreeLine::Parse(const std::string& line) {
    static const std::regex directory("d ([0-7]{3,4}) (.+)");
    static const std::regex text("f ([0-7]{3,4}) (.+?) \"(.*)\"");
    static const std::regex sized("f ([0-7]{3,4}) (.+?) size ([0-9]+)( [0-9]+)?");
    static const std::regex digested("f ([0-7]{3,4}) (.+?) ([0-9]+ bytes [0-9a-f]{16})");
    static const std::regex link("l (.+?) -> (.+)");
    static const std::regex fifo("p ([0-7]{3,4}) (.+)");
    static const std::regex other("([-=]) (.+)");
    TreeLine result;
    std::smatch part;
    const auto mode = [&] { return static_cast<unsigned>(std::stoul(part[1], nullptr, 8)); };
    result.kind = line.empty() ? ' ' : line[0];
    if (std::regex_match(line, part, directory) || std::regex_match(line, part, fifo)) {
        result.mode = mode();
        result.path = Unescaped(part[2]);
    } else if (std::regex_match(line, part, text)) {
        result.mode = mode();
        result.path = Unescaped(part[2]);
        result.bytes = Unescaped(part[3]);
    } else if (std::regex_match(line, part, sized)) {
        result.mode = mode();
        result.path = Unescaped(part[2]);
        const unsigned long seed = part[4].matched ? std::stoul(part[4]) : 1;
        result.bytes = ArbitraryBytes(std::stoul(part[3]), seed);
    } else if (std::regex_match(line, part, digested)) {
        result.mode = mode();
        result.path = Unescaped(part[2]);
        result.digest = part[3];
    } else if (std::regex_match(line, part, link)) {
        result.path = Unescaped(part[1]);
        result.target = Unescaped(part[2]);
    } else if (std::regex_match(line, part, other)) {
        result.path = Unescaped(part[2]);
    } else {
        throw CaseError("no line of a tree: " + line);
    }
    return result;
}

std::string TreeLine::Listed() const {
    char modeText[16];
    std::snprintf(modeText, sizeof(modeText), "%04o ", mode);
    const std::string name = TemporaryTree::Escaped(path);
    switch (kind) {
    case 'l':
        return "l " + name + " -> " + TemporaryTree::Escaped(target);
    case 'f':
        break;
    default:
        return std::string{kind, ' '} + modeText + name;
    }
    const std::string start = std::string("f ") + modeText + name + ' ';
    if (!digest.empty()) {
        return start + digest;
    }
    if (bytes.size() > longestShownContents) {
        return start + std::to_string(bytes.size()) + " bytes " + TemporaryTree::DigestOf(bytes);
    }
    return start + '"' + TemporaryTree::Escaped(bytes) + '"';
}

} // namespace KTEST
