// SPDX-License-Identifier: MIT
//
// Runs the cases of tests/cases: see README.md there. It belongs into the throwaway machine.
#include "CaseFile.h"
#include "CaseRun.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

using KTEST::CaseFile;
using KTEST::CaseSection;
using KTEST::RunReport;
using KTEST::TreeLine;
using Lines = std::vector<std::string>;

/// The lines of both in order: "  " common, "- " expected only, "+ " got only.
Lines Difference(const Lines& expected, const Lines& got) {
    // Longest common subsequence; cases are small.
    std::vector<std::vector<unsigned>> common(
        expected.size() + 1, std::vector<unsigned>(got.size() + 1, 0)
    );
    for (std::size_t left = expected.size(); left-- > 0;) {
        for (std::size_t right = got.size(); right-- > 0;) {
            common[left][right] = expected[left] == got[right]
                                      ? common[left + 1][right + 1] + 1
                                      : std::max(common[left + 1][right], common[left][right + 1]);
        }
    }
    Lines lines;
    std::size_t left = 0;
    std::size_t right = 0;
    while (left < expected.size() || right < got.size()) {
        if (left < expected.size() && right < got.size() && expected[left] == got[right]) {
            lines.push_back("  " + expected[left]);
            ++left;
            ++right;
        } else if (right == got.size() || (left < expected.size() && common[left + 1][right] >= common[left][right + 1])) {
            lines.push_back("- " + expected[left++]);
        } else {
            lines.push_back("+ " + got[right++]);
        }
    }
    return lines;
}

void Show(const char* what, Lines expected, Lines got, bool ordered) {
    if (!ordered) {
        std::sort(expected.begin(), expected.end());
        std::sort(got.begin(), got.end());
    }
    if (expected == got) {
        return;
    }
    std::cout << "    " << what << " (- expected, + got)\n";
    for (const std::string& line : Difference(expected, got)) {
        std::cout << "      " << line << '\n';
    }
}

void Show(const CaseFile& file, const RunReport& report) {
    std::cout << "  " << file.path << ':' << report.heading->lineNumber << ": run "
              << report.heading->arguments << '\n';
    Show("status", report.expected.status, report.actual.status, true);
    Show("log", report.expected.log, report.actual.log, true);
    Show("result", report.expected.result, report.actual.result, false);
    Show("tree", report.expected.tree, report.actual.tree, true);
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

/// "200000 bytes 8c1f…" to "size 200000 7" for every size that the case mentions.
std::map<std::string, std::string> SizesIn(const CaseFile& file) {
    std::map<std::string, std::string> sizes;
    for (const CaseSection& section : file.sections) {
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

/// Writes what came as what is expected.
void Accept(const CaseFile& file, const std::vector<RunReport>& reports) {
    const std::map<std::string, std::string> sizes = SizesIn(file);
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
    accepted.Save();
}

enum class Verdict { Passed, Failed, Accepted };

Verdict Try(const std::filesystem::path& folder, bool accept) {
    const std::string name = folder.filename();
    try {
        const CaseFile file = CaseFile::Load(folder / "case");
        const std::vector<RunReport> reports = KTEST::RunCase(file);
        const bool passed = std::all_of(reports.begin(), reports.end(), [](const RunReport& r) {
            return r.Passed();
        });
        std::cout << (passed ? "ok     " : "FAILED ") << name << '\n';
        if (passed) {
            return Verdict::Passed;
        }
        for (const RunReport& report : reports) {
            if (!report.Passed()) {
                Show(file, report);
            }
        }
        if (accept) {
            Accept(file, reports);
            std::cout << "  accepted: read the change before you keep it\n";
            return Verdict::Accepted;
        }
        std::cout << "  if this is what it should do: cases_runner --accept " << name << '\n';
    } catch (const std::exception& error) {
        std::cout << "FAILED " << name << "\n  " << error.what() << '\n';
    }
    return Verdict::Failed;
}

} // namespace

int main(int argc, char** argv) {
    const char* const machine = std::getenv("INSPP_THROWAWAY");
    if (machine == nullptr || std::strcmp(machine, "1") != 0) {
        std::cerr
            << "cases_runner: the cases install products as root and write to /etc; run them in "
               "the throwaway machine (tests/machine/throwaway --setenv INSPP_THROWAWAY=1 -- …)\n";
        return 2;
    }
    std::filesystem::path cases = "tests/cases";
    bool accept = false;
    Lines names;
    for (int at = 1; at < argc; ++at) {
        const std::string argument = argv[at];
        if (argument == "--accept") {
            accept = true;
        } else if (argument == "--cases" && at + 1 < argc) {
            cases = argv[++at];
        } else if (argument.starts_with("-")) {
            std::cerr << "usage: cases_runner [--cases DIR] [--accept] [NAME...]\n";
            return 2;
        } else {
            names.push_back(argument);
        }
    }
    if (names.empty()) {
        for (const auto& entry : std::filesystem::directory_iterator(cases)) {
            if (entry.is_directory()) {
                names.push_back(entry.path().filename());
            }
        }
    }
    std::sort(names.begin(), names.end());
    unsigned passed = 0;
    unsigned failed = 0;
    for (const std::string& name : names) {
        const Verdict verdict = Try(cases / name, accept);
        (verdict == Verdict::Failed ? failed : passed) += 1;
        std::cout.flush();
    }
    std::cout << passed << " passed, " << failed << " failed\n";
    return failed == 0 && passed > 0 ? 0 : 1;
}
