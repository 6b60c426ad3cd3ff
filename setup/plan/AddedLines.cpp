// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/TextFormat.h>
#include <setup/plan/AddedLines.h>
#include <setup/script/SecretNames.h>
#include <sup++/KCustomMacro.h>
#include <sup++/KErrorCode.h>
#include <sup++/SvcCommandLine.h>
#include <sup++/SvcData.h>

#include <algorithm>
#include <cstddef>
#include <new>

namespace KSETUP {

namespace {

constexpr const char* option = KINS::Names::addProfileLineOption;
constexpr const char* inFrontOf = "put,$pathTargetConfig$$iniFile$,"; // of each value
constexpr std::size_t ruleFields = 5;
constexpr unsigned mostBytes = 511; // that the engine reads
constexpr std::string_view valueMark = "$--values ";

/// The engine expands a line, splits it at its commas, and expands each part once more. So a macro that
/// holds another macro's name brings a text through as it is, however long, whatever is in it.
std::string NameOf(std::size_t number, const char* part) {
    return "--values " + std::to_string(number) + " " + part;
}

void SetMacro(const std::string& name, const std::string& value) {
    if (SvcSetCustomKey(0, 0, name.c_str(), value.c_str()) != 0) {
        throw std::bad_alloc(); // the one thing that can be wrong
    }
}

/// A field of a line that becomes `text` at the second expansion.
std::string FieldOf(std::size_t number, const char* part, const std::string& text) {
    const std::string name = NameOf(number, part);
    const std::string outer = name + " name";
    SetMacro(name, text);
    SetMacro(outer, "$" + name + "$");
    return "$" + outer + "$";
}

std::string Expanded(const std::string& text) {
    return KSUP::KCustomMacro().ExpandMacros(text).c_str();
}

KAddedLine Describe(const std::string& line) {
    if (!line.starts_with(valueMark)) {
        return {std::string("--") + option, MaskedAddedLine(line)};
    }
    const std::vector<std::string> fields = WrittenFields(Expanded(line));
    return {"--values", Expanded(fields[0]) + "," + Expanded(fields[1]) + "," + maskedValue};
}

} // namespace

void AddOptions(const std::vector<KAddedOption>& options, std::vector<std::string> words) {
    const std::string begin = std::string("--") + option + "=";
    std::size_t number = 0;
    for (const KAddedOption& one : options) {
        ++number; // behind the program's name, and in front of a "--"
        words.insert(
            words.begin() + static_cast<std::ptrdiff_t>(std::min(number, words.size())),
            begin + FieldOf(number, "section", one.section) + "," +
                FieldOf(number, "key", one.key) + "," + FieldOf(number, "value", one.value)
        );
    }
    std::vector<const char*> pointers;
    for (const std::string& word : words) {
        pointers.push_back(word.c_str());
    }
    if (!options.empty() &&
        SvcSetCommandLine(static_cast<unsigned>(pointers.size()), pointers.data()) != 0) {
        throw std::bad_alloc();
    }
}

bool IsAddedValue(std::string_view field) noexcept {
    return field.starts_with(valueMark);
}

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
                Text(
                    "--%s: a value is missing, or is longer than %s bytes. Nothing was changed.",
                    option,
                    mostBytes
                )
            );
        }
        lines.emplace_back(buffer);
    }
}

std::vector<KAddedLine> DescribeAddedLines() {
    std::vector<KAddedLine> described;
    for (const std::string& line : ReadAddedLines()) {
        described.push_back(Describe(line));
    }
    return described;
}

void RequireAddedLines(const MacroExpander& expand) {
    for (const std::string& value : ReadAddedLines()) {
        const KScriptLine line{0, "", "profile", inFrontOf + value};
        if (FieldsOf(line, expand).size() != ruleFields) {
            throw KSetupFailure(
                ExitCode::usage,
                Text(
                    "--%s %s: a line is SECTION,KEY,VALUE, none of them empty or with a comma in "
                    "it. Nothing was changed.",
                    option,
                    Printable(MaskedAddedLine(value))
                )
            );
        }
    }
}

} // namespace KSETUP
