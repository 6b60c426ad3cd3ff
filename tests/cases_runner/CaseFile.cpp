// SPDX-License-Identifier: MIT
#include "CaseFile.h"

#include "../support/TemporaryTree.h"

#include <cstdio>
#include <fstream>
#include <regex>

namespace KTEST {

namespace {

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

std::string CaseFile::Text() const {
    std::string text;
    for (const CaseSection& section : sections) {
        text += text.empty() ? "== " : "\n== ";
        text += section.name + (section.arguments.empty() ? "" : " ") + section.arguments + '\n';
        for (const std::string& line : section.lines) {
            text += line + '\n';
        }
    }
    return text;
}

std::map<std::string, std::string> CaseFile::Sizes() const {
    std::map<std::string, std::string> sizes;
    for (const CaseSection& section : sections) {
        for (const std::string& line : section.lines) {
            const std::size_t at = line.find(" size ");
            if (line.starts_with("f ") && at != std::string::npos) {
                const std::string listed = TreeLine::Parse(line).Listed();
                const std::string digest = TreeLine::Parse(listed).digest;
                if (!digest.empty()) {
                    sizes[digest] = line.substr(at + 1);
                }
            }
        }
    }
    return sizes;
}

TreeLine TreeLine::Parse(const std::string& line) {
    static const std::string mode = "([0-7]{3,4}(?: [0-9]+:[0-9]+)?) ";
    static const std::regex directory("d " + mode + "(.+)");
    static const std::regex text("f " + mode + "(.+?) \"(.*)\"");
    static const std::regex sized("f " + mode + "(.+?) size ([0-9]+)( [0-9]+)?");
    static const std::regex digested("f " + mode + "(.+?) ([0-9]+ bytes [0-9a-f]{16})");
    static const std::regex link("l (.+?) -> (.+)");
    static const std::regex fifo("p " + mode + "(.+)");
    static const std::regex other("([-=]) (.+)");
    TreeLine result;
    std::smatch part;
    result.kind = line.empty() ? ' ' : line[0];
    if (std::regex_match(line, part, directory) || std::regex_match(line, part, fifo)) {
        result.SetMode(part[1]);
        result.path = Unescaped(part[2]);
    } else if (std::regex_match(line, part, text)) {
        result.SetMode(part[1]);
        result.path = Unescaped(part[2]);
        result.bytes = Unescaped(part[3]);
    } else if (std::regex_match(line, part, sized)) {
        result.SetMode(part[1]);
        result.path = Unescaped(part[2]);
        const unsigned long seed = part[4].matched ? std::stoul(part[4]) : 1;
        result.bytes = ArbitraryBytes(std::stoul(part[3]), seed);
    } else if (std::regex_match(line, part, digested)) {
        result.SetMode(part[1]);
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

void TreeLine::SetMode(const std::string& text) {
    mode = static_cast<unsigned>(std::stoul(text, nullptr, 8));
    if (const std::size_t blank = text.find(' '); blank != std::string::npos) {
        owner = static_cast<unsigned>(std::stoul(text.substr(blank + 1)));
        group = static_cast<unsigned>(std::stoul(text.substr(text.find(':') + 1)));
    }
}

std::string TreeLine::Listed(std::size_t longestText) const {
    char modeText[40];
    std::snprintf(modeText, sizeof(modeText), "%04o ", mode);
    if (owner != 0 || group != 0) {
        std::snprintf(modeText, sizeof(modeText), "%04o %u:%u ", mode, owner, group);
    }
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
    if (bytes.size() > longestText) {
        return start + std::to_string(bytes.size()) + " bytes " + TemporaryTree::DigestOf(bytes);
    }
    return start + '"' + TemporaryTree::Escaped(bytes) + '"';
}

} // namespace KTEST
