// SPDX-License-Identifier: MIT
#include <setup/check/FindingText.h>
#include <setup/output/TextFormat.h>

#include <filesystem>

namespace KSETUP {

KText ToLine(const KFinding& finding, const std::string& directory) {
    const std::string file =
        (std::filesystem::path(directory) / finding.file).lexically_normal().string();
    // Editors and other programs read the place and the word "error".
    const char* word = finding.severity == KSeverity::Error ? "error" : "warning";
    return Printable(
        KText(file) + ":" + finding.line + ":" + finding.column + ": " + word + ": " +
        finding.message + "; " + finding.advice + " [" + finding.rule + "]"
    );
}

} // namespace KSETUP
