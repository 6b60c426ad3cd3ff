// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/TextFormat.h>
#include <setup/plan/AddedLines.h>
#include <sup++/KErrorCode.h>
#include <sup++/SvcCommandLine.h>
#include <sup++/SvcData.h>

namespace KSETUP {

namespace {

constexpr const char* option = KINS::Names::addProfileLineOption;
constexpr const char* inFrontOf = "put,$pathTargetConfig$$iniFile$,"; // of each value
constexpr std::size_t ruleFields = 5;
constexpr unsigned mostBytes = 511; // that the engine reads

} // namespace

std::vector<std::string> ReadAddedLines() {
    std::vector<std::string> lines;
    char buffer[mostBytes + 1];
    for (unsigned cursor = 0;;) {
        const unsigned status = SvcEnumerateStringFromCommandLine(
            0, SvcGetGlobalDataEx()->commandLine, "", option, sizeof(buffer), &cursor, buffer
        );
        if (status == KSUP::ErrorCode::notFound) {
            return lines;
        }
        if (status != 0) {
            throw KSetupFailure(
                ExitCode::usage,
                std::string("--") + option + ": a value is missing, or is longer than " +
                    std::to_string(mostBytes) + " bytes. Nothing was changed."
            );
        }
        lines.emplace_back(buffer);
    }
}

void RequireAddedLines(const MacroExpander& expand) {
    for (const std::string& value : ReadAddedLines()) {
        const KScriptLine line{0, "", "profile", inFrontOf + value};
        if (FieldsOf(line, expand).size() != ruleFields) {
            throw KSetupFailure(
                ExitCode::usage,
                std::string("--") + option + " " + Printable(value) +
                    ": a line is SECTION,KEY,VALUE, none of them empty or with a comma in it. "
                    "Nothing was changed."
            );
        }
    }
}

} // namespace KSETUP
