// SPDX-License-Identifier: MIT
#include "CaseRun.h"
#include "Difference.h"
#include "Verdict.h"

#include <algorithm>
#include <map>

namespace KTEST {

namespace {

std::string Compared(const char* what, const Lines& expected, const Lines& got) {
    return DescribeDifference(what, Difference(expected, got));
}

std::string ComparedSorted(const char* what, Lines expected, Lines got) {
    std::sort(expected.begin(), expected.end());
    std::sort(got.begin(), got.end());
    return Compared(what, expected, got);
}

std::string Description(const CaseFile& file, const RunReport& report) {
    std::string text = "  " + file.path + ':' + std::to_string(report.heading->lineNumber) +
                       ": run " + report.heading->arguments + '\n';
    text += Compared("status", report.expected.status, report.actual.status);
    text += Compared("log", report.expected.log, report.actual.log);
    text += ComparedSorted("result", report.expected.result, report.actual.result);
    text += Compared("tree", report.expected.tree, report.actual.tree);
    return text;
}

/// The tree as a person would write it: "= PATH" for what has not changed, sizes for long contents.
Lines WrittenTree(const RunReport& report, const std::map<std::string, std::string>& sizes) {
    Lines written;
    const auto topOf = [](const std::string& line) {
        const std::string path = TreeLine::Parse(line).path;
        return path.substr(0, path.find('/'));
    };
    const auto below = [&](const Lines& tree, const std::string& top) {
        Lines found;
        std::copy_if(
            tree.begin(),
            tree.end(),
            std::back_inserter(found),
            [&](const std::string& line) { return topOf(line) == top; }
        );
        return found;
    };
    std::string unchanged;
    for (const std::string& line : report.actual.tree) {
        const std::string top = topOf(line);
        if (top == unchanged) {
            continue;
        }
        if (below(report.actual.tree, top) == below(report.treeBefore, top)) {
            unchanged = top;
            written.push_back("= " + top);
            continue;
        }
        const std::string digest = TreeLine::Parse(line).digest;
        const auto size = sizes.find(digest);
        written.push_back(
            digest.empty() || size == sizes.end()
                ? line
                : line.substr(0, line.size() - digest.size()) + size->second
        );
    }
    return written;
}

/// The case with what came as what is expected.
std::string Accepted(const CaseFile& file, const std::vector<RunReport>& reports) {
    const std::map<std::string, std::string> sizes = file.Sizes();
    CaseFile accepted{file.path, {}};
    std::size_t run = 0;
    for (const CaseSection& section : file.sections) {
        const std::string& name = section.name;
        if (name == "status" || name == "log" || name == "result" || name == "tree") {
            continue;
        }
        accepted.sections.push_back(section);
        if (name == "run") {
            const RunReport& report = reports[run++];
            accepted.sections.push_back({"status", "", report.actual.status, 0});
            accepted.sections.push_back({"log", "", report.actual.log, 0});
            accepted.sections.push_back({"result", "", report.actual.result, 0});
            accepted.sections.push_back({"tree", "", WrittenTree(report, sizes), 0});
        }
    }
    return accepted.Text();
}

} // namespace

Verdict TryEngineCase(const CaseFile& file) {
    const std::vector<RunReport> reports = RunCase(file);
    Verdict verdict{true, 0, "", ""};
    for (const RunReport& report : reports) {
        if (!report.Passed()) {
            verdict.passed = false;
            verdict.text += Description(file, report);
        }
    }
    verdict.accepted = Accepted(file, reports);
    return verdict;
}

} // namespace KTEST
