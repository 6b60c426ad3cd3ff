// SPDX-License-Identifier: MIT
// The file of --values: read as a profile is, or refused at its first mistake without telling what
// stands there; what is read can be stored in a profile and arrives at the engine as it stands.
#include "Fuzz.h"
#include "PlainProfile.h"

#include <setup/KSetupFailure.h>
#include <setup/preflight/ValuesFile.h>
#include <setup/script/KScript.h>
#include <sup++/KCustomMacro.h>

#include <algorithm>
#include <tuple>

namespace {

using KSETUP::KAddedOption;
using KTEST::Require;

constexpr char name[] = "values";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t mostThatArrive = 3; // of one input, for the sake of speed
constexpr unsigned mostArrivals = 10'000; // the library keeps each command line for ever

bool HasControl(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char letter) {
        const auto byte = static_cast<unsigned char>(letter);
        return byte < 0x20 || byte == 0x7F;
    });
}

/// Whether a profile holds it, so that it reads back.
bool IsStorable(const std::string& section, const std::string& key, const std::string& value) {
    return !section.empty() && !key.empty() && !HasControl(section) && !HasControl(key) &&
           !HasControl(value) && !key.starts_with(byteOrderMark) &&
           std::string("[;#").find(key[0]) == std::string::npos;
}

bool IsSame(const std::vector<KAddedOption>& left, const std::vector<KAddedOption>& right) {
    const auto isSame = [](const KAddedOption& one, const KAddedOption& other) {
        return std::tie(one.section, one.key, one.value) ==
               std::tie(other.section, other.key, other.value);
    };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), isSame);
}

void RequireAsProfile(const std::vector<KAddedOption>& options, const std::string& text) {
    std::vector<KAddedOption> read;
    std::string written;
    for (const KTEST::KPlainProfile::Line& line : KTEST::KPlainProfile(text).lines) {
        Require(IsStorable(line.section, line.key, line.value), "a profile holds what is read");
        read.push_back({line.section, line.key, line.value});
        written += "[" + line.section + "]\n" + line.key + "=" + line.value + "\n";
    }
    Require(IsSame(options, read), "a profile of these lines says the same");
    Require(IsSame(KSETUP::ParseValues(written, name), options), "what is written reads back");
}

/// As the engine sees the options: a line is expanded, split, and each part expanded again.
void RequireArrival(const std::vector<KAddedOption>& options) {
    KSETUP::AddOptions(options, {"ins-setup", "install"});
    const KSUP::KCustomMacro macros;
    std::vector<KAddedOption> arrived;
    for (const std::string& line : KSETUP::ReadAddedLines()) {
        std::vector<std::string> fields =
            KSETUP::WrittenFields(macros.ExpandMacros(line.c_str()).c_str());
        Require(fields.size() == 3, "an option arrives in three parts");
        for (std::string& field : fields) {
            field = macros.ExpandMacros(field.c_str()).c_str();
        }
        arrived.push_back({fields[0], fields[1], fields[2]});
    }
    Require(options.empty() || IsSame(arrived, options), "options arrive as they stand");
}

/// Whether it is right to refuse line `number` of the lines, those before it being right.
bool IsMistake(const std::vector<std::string>& lines, std::size_t number) {
    std::string text;
    for (std::size_t at = 0; at < number; ++at) {
        text += lines[at] + "\n";
    }
    std::string line = lines[number - 1];
    line.erase(0, number == 1 && line.starts_with(byteOrderMark) ? byteOrderMark.size() : 0);
    line.resize(line.size() - (line.ends_with('\r') ? 1 : 0));
    line = KTEST::PlainTrimmed(line);
    const KTEST::KPlainProfile profile(text);
    if (profile.lines.empty() || profile.lines.back().number != number) {
        return line.starts_with('[') && HasControl(line);
    }
    const KTEST::KPlainProfile::Line& last = profile.lines.back();
    return !IsStorable(last.section, last.key, last.value) || HasControl(line) ||
           line.find('=') == std::string::npos;
}

void RequireMistake(std::size_t number, const std::string& text) {
    std::vector<std::string> lines = KTEST::PiecesOf(text, '\n');
    Require(number >= 1 && number <= lines.size(), "the line that is wrong is there");
    Require(IsMistake(lines, number), "what a profile holds is not refused");
    lines.resize(number - 1);
    std::string before;
    for (const std::string& line : lines) {
        before += line + "\n";
    }
    // Ends the program where a line before it is refused.
    static_cast<void>(KSETUP::ParseValues(before, name));
}

/// The number of the line, from a message that has nothing else of the text in it.
std::size_t NumberIn(const std::string& message) {
    const std::string begin = std::string(name) + ":";
    Require(message.starts_with(begin), "a refusal begins with the file's name");
    const std::string rest = message.substr(begin.size());
    const std::size_t digits = rest.find_first_not_of("0123456789");
    Require(digits > 0 && digits < 10, "a refusal has the line's number");
    const std::string why = rest.substr(digits);
    Require(
        why == ": the line stands in front of the first section, [NAME]. Nothing was changed." ||
            why == ": the line has a control character. Nothing was changed." ||
            why == ": the line is no KEY=VALUE. Nothing was changed." ||
            why == ": the line has no key. Nothing was changed." ||
            why == ": the line begins with a byte order mark. Nothing was changed.",
        "a refusal tells nothing of the text"
    );
    return std::stoul(rest);
}

} // namespace

/// The file.
FUZZ_TARGET(ValuesFile) {
    const std::string text(input);
    std::vector<KAddedOption> options;
    try {
        options = KSETUP::ParseValues(text, name);
    } catch (const KSETUP::KSetupFailure& failure) {
        RequireMistake(NumberIn(failure.what()), text);
        return;
    }
    RequireAsProfile(options, text);
    static unsigned arrivals = 0;
    if (options.size() <= mostThatArrive && arrivals < mostArrivals) {
        ++arrivals;
        RequireArrival(options);
    }
}
