// SPDX-License-Identifier: MIT
#include "ScreensStep.h"

#include "Marks.h"
#include "ShellStep.h"

#include <algorithm>
#include <array>
#include <regex>
#include <sstream>

namespace KTEST {

namespace {

constexpr std::array<unsigned, 3> widths{40, 80, 200};
constexpr std::array<const char*, 2> languages{"", "de"};

Lines Marked(Lines lines) {
    // As long as what it stands for, so that columns stay where they are.
    static const std::regex second("20[0-9]{2}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}");
    for (std::string& line : lines) {
        line = std::regex_replace(WithMarks(line), second, "yyyy-mm-dd hh:mm:ss");
    }
    return lines;
}

Lines WithoutColours(Lines lines) {
    static const std::regex colour("<[0-9;]+>");
    for (std::string& line : lines) {
        line = std::regex_replace(line, colour, "");
        line.erase(line.find_last_not_of(' ') + 1);
    }
    return lines;
}

std::string NameOf(const std::string& language, unsigned columns) {
    return std::to_string(columns) + (language.empty() ? "" : " " + language);
}

std::string SettingsFor(const std::string& language) {
    return language == "de" ? "export LANG=de_DE.UTF-8\n" : "";
}

Lines AcceptedLines(const Lines& expected, const Lines& shown) {
    Lines lines;
    for (const DifferenceLine& line : Difference(expected, shown)) {
        if (line.mark != '-') {
            lines.push_back(line.text);
        }
    }
    return lines;
}

} // namespace

bool ScreensStep::Take(const CaseSection& section) {
    if (section.name == "exit") {
        exitCode = section.arguments;
        return true;
    }
    if (section.name != "out") {
        return false;
    }
    std::istringstream words(section.arguments);
    std::vector<unsigned> columns;
    std::string language;
    for (std::string word; words >> word;) {
        if (word == "de") {
            language = word;
        } else if (word == "40" || word == "80" || word == "200") {
            columns.push_back(static_cast<unsigned>(std::stoul(word)));
        } else {
            file.Refuse(section.lineNumber, "no such screen: " + word);
        }
    }
    for (const unsigned one : columns) {
        if (!expected.emplace(Place(language, one), section.lines).second) {
            file.Refuse(section.lineNumber, "a second screen of " + NameOf(language, one));
        }
    }
    return true;
}

void ScreensStep::RunAt(const Place& place, const std::string& text, const std::string& keys) {
    const ShellOutcome outcome =
        RunShellOnTerminal(SettingsFor(place.first) + text, keys, place.second);
    const std::string code = std::to_string(outcome.exitCode);
    exited = exited.empty() || exited == code ? code : exited + ", then " + code;
    shown[place] = Marked(outcome.out);
}

void ScreensStep::Run(
    const std::string& text, const std::string& keys, const std::function<void()>& before
) {
    for (const std::string language : languages) {
        for (const unsigned columns : widths) {
            const Place place(language, columns);
            before();
            RunAt(place, "export NO_COLOR=1\n" + text, keys);
            const Lines plain = shown[place];
            before();
            RunAt(place, text, keys);
            const auto expectedOfIt = expected.find(place);
            const Lines accepted = AcceptedLines(
                expectedOfIt == expected.end() ? Lines() : expectedOfIt->second, shown[place]
            );
            uncoloured += DescribeDifference(
                NameOf(language, columns) + " without colours",
                Difference(WithoutColours(accepted), plain)
            );
        }
    }
}

std::string ScreensStep::Description() const {
    std::string text = DescribeDifference("exit", Difference({exitCode}, {exited})) + uncoloured;
    for (const auto& [place, lines] : shown) {
        const auto wanted = expected.find(place);
        text += DescribeDifference(
            "out " + NameOf(place.first, place.second),
            Difference(wanted == expected.end() ? Lines() : wanted->second, lines)
        );
    }
    const std::string command = heading.lines.empty() ? "" : heading.lines.front();
    return text.empty() ? ""
                        : "  " + file.path + ':' + std::to_string(heading.lineNumber) + ": " +
                              command + '\n' + text;
}

std::vector<CaseSection> ScreensStep::Grouped(const std::string& language) const {
    std::vector<CaseSection> sections;
    for (const unsigned columns : widths) {
        const Place place(language, columns);
        const auto wanted = expected.find(place);
        const Lines lines =
            AcceptedLines(wanted == expected.end() ? Lines() : wanted->second, shown.at(place));
        if (!sections.empty() && sections.back().lines == lines) {
            sections.back().arguments += " " + std::to_string(columns);
        } else {
            sections.push_back({"out", std::to_string(columns), lines, 0});
        }
    }
    for (CaseSection& section : sections) {
        section.arguments += language.empty() ? "" : " " + language;
    }
    return sections;
}

std::vector<CaseSection> ScreensStep::Accepted() const {
    std::vector<CaseSection> sections;
    if (exited != "0") {
        sections.push_back({"exit", exited, {}, 0});
    }
    for (const std::string language : languages) {
        for (CaseSection& section : Grouped(language)) {
            sections.push_back(std::move(section));
        }
    }
    return sections;
}

} // namespace KTEST
