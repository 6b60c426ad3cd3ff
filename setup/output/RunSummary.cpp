// SPDX-License-Identifier: MIT
#include <setup/output/RunSummary.h>
#include <setup/output/TextFormat.h>

#include <cstddef>

namespace KSETUP {

namespace {

void AddPart(KText& line, const KText& part) {
    line += (line.empty() ? "" : ", ") + part;
}

} // namespace

KText VersionText(const KRunReport& report) {
    return Text(
        "%s %s (build %s)", Printable(report.product), Printable(report.version), report.buildNumber
    );
}

KText WorkLine(const KRunReport& report) {
    KText files;
    if (report.filesCopied != 0) {
        AddPart(
            files,
            Counted(
                report.filesCopied,
                "%s file (%s) copied",
                "%s files (%s) copied",
                BytesInWords(report.bytesCopied)
            )
        );
    }
    if (report.filesDeleted != 0) {
        AddPart(files, Counted(report.filesDeleted, "%s file deleted", "%s files deleted"));
    }
    const KText time = DecimalText(report.seconds) + " s";
    return files.empty()
               ? Counted(report.rulesDone, "%s rule done in %s.", "%s rules done in %s.", time)
               : Counted(
                     report.rulesDone,
                     "%s rule done: %s in %s.",
                     "%s rules done: %s in %s.",
                     files,
                     time
                 );
}

KText ChangesLine(const KRunReport& report) {
    KText line;
    if (const std::size_t count = report.keptConfiguration.size(); count != 0) {
        AddPart(line, Counted(count, "%s edited file kept", "%s edited files kept"));
    }
    if (const std::size_t count = report.obsolete.size(); count != 0) {
        AddPart(line, Counted(count, "%s obsolete entry deleted", "%s obsolete entries deleted"));
    }
    if (const std::size_t count = report.outdated.size(); count != 0) {
        AddPart(
            line,
            Counted(
                count,
                "%s program or service still uses what was replaced",
                "%s programs or services still use what was replaced"
            )
        );
    }
    if (const std::size_t count = report.keptServices.size(); count != 0) {
        AddPart(line, Counted(count, "%s service left as it was", "%s services left as they were"));
    }
    return line.empty() ? line : line + ".";
}

KText PlaceOfEnd(const KRunReport& report) {
    return report.ruleAtWork != 0 ? Text("in rule %s of %s", report.ruleAtWork, report.rulesAll)
                                  : Counted(
                                        report.rulesAll,
                                        "after %2$s of %1$s rule",
                                        "after %2$s of %1$s rules",
                                        report.rulesDone
                                    );
}

} // namespace KSETUP
