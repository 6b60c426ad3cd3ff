// SPDX-License-Identifier: MIT
#include <setup/output/RunSummary.h>
#include <setup/output/TextFormat.h>

#include <array>
#include <cstddef>
#include <cstdio>

namespace KSETUP {

namespace {

std::string SecondsText(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f s", seconds);
    return text.data();
}

void AddPart(
    std::string& line, std::size_t count, const char* one, const char* many, const char* fate
) {
    if (count != 0) {
        line += (line.empty() ? "" : ", ") + Counted(count, one, many) + fate;
    }
}

} // namespace

std::string VersionText(const KRunReport& report) {
    return Printable(report.product) + " " + Printable(report.version) + " (build " +
           std::to_string(report.buildNumber) + ")";
}

std::string WorkLine(const KRunReport& report) {
    std::string line = Counted(report.rulesDone, "rule", "rules") + " done";
    if (report.filesCopied != 0) {
        line += ": " + Counted(report.filesCopied, "file", "files") + " (" +
                BytesInWords(report.bytesCopied) + ") copied";
    }
    if (report.filesDeleted != 0) {
        line += (report.filesCopied != 0 ? ", " : ": ") +
                Counted(report.filesDeleted, "file", "files") + " deleted";
    }
    return line + " in " + SecondsText(report.seconds) + ".";
}

std::string ChangesLine(const KRunReport& report) {
    std::string line;
    AddPart(line, report.keptConfiguration.size(), "edited file", "edited files", " kept");
    AddPart(line, report.obsolete.size(), "obsolete entry", "obsolete entries", " deleted");
    AddPart(
        line,
        report.outdated.size(),
        "program or service still uses",
        "programs or services still use",
        " what was replaced"
    );
    AddPart(line, report.keptServices.size(), "service", "services", " left as it was");
    return line.empty() ? line : line + ".";
}

std::string PlaceOfEnd(const KRunReport& report) {
    const std::string all = " of " + std::to_string(report.rulesAll);
    return report.ruleAtWork != 0 ? "in rule " + std::to_string(report.ruleAtWork) + all
                                  : "after " + std::to_string(report.rulesDone) + all + " rules";
}

} // namespace KSETUP
