// SPDX-License-Identifier: MIT
// The script in front of a bundle's archive: where the archive begins is found as a slow model finds
// it, and only where makeself wrote it.
#include "Fuzz.h"

#include <setup/kit/BundlePayload.h>

#include <optional>

namespace {

using KTEST::Require;

constexpr std::size_t linesSearched = 60;

/// The digits, as makeself writes a number: without zeros in front, of 64 bits at the most.
bool IsNumber(const std::string& digits) {
    const std::string most = "18446744073709551615";
    return !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos &&
           (digits == "0" || digits[0] != '0') &&
           (digits.size() < most.size() || (digits.size() == most.size() && digits <= most));
}

/// The digits in the one line NAME="DIGITS".
std::optional<std::string>
PlainNumber(const std::vector<std::string>& lines, const std::string& name) {
    std::vector<std::string> found;
    for (std::size_t at = 0; at < lines.size() && at < linesSearched; ++at) {
        if (lines[at].starts_with(name + "=\"")) {
            found.push_back(lines[at].substr(name.size() + 2));
        }
    }
    if (found.size() != 1 || !found[0].ends_with('"')) {
        return std::nullopt;
    }
    found[0].pop_back();
    return IsNumber(found[0]) ? std::optional(found[0]) : std::nullopt;
}

/// The bytes in front of the archive; nothing where there are not so many lines.
std::optional<std::string>
PlainScript(const std::vector<std::string>& lines, const std::string& count) {
    std::string script;
    // The last piece has no line feed behind it.
    for (std::size_t at = 0; at + 1 < lines.size(); ++at) {
        script += lines[at] + "\n";
        if (std::to_string(at + 1) == count) {
            return script;
        }
    }
    return std::nullopt;
}

} // namespace

/// The begin of a file.
FUZZ_TARGET(BundlePayload) {
    const std::vector<std::string> lines = KTEST::PiecesOf(input, '\n');
    const auto count = PlainNumber(lines, "skip");
    const auto byteCount = PlainNumber(lines, "filesizes");
    const bool isOurs = lines.size() > 1 && lines[0] == "#!/bin/sh" && count && byteCount;
    const auto script = isOurs ? PlainScript(lines, *count) : std::nullopt;
    const auto payload = KSETUP::FindBundlePayload(input);
    Require(
        payload.has_value() == script.has_value(), "a bundle is known, and nothing else is one"
    );
    if (payload) {
        Require(
            input.substr(0, payload->offset) == *script, "the archive begins behind the script"
        );
        Require(std::to_string(payload->byteCount) == *byteCount, "the archive is as long as told");
    }
}
