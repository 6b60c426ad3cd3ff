// SPDX-License-Identifier: MIT
#include <setup/check/FindingText.h>
#include <setup/output/TextFormat.h>

#include <filesystem>

namespace KSETUP {

std::string ToLine(const KFinding& finding, const std::string& directory) {
    const std::string file =
        (std::filesystem::path(directory) / finding.file).lexically_normal().string();
    return Printable(
        file + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column) +
        (finding.severity == KSeverity::Error ? ": error: " : ": warning: ") + finding.message +
        "; " + finding.advice + " [" + finding.rule + "]"
    );
}

} // namespace KSETUP
