// SPDX-License-Identifier: MIT
#include <setup/kit/BundlePayload.h>

#include <charconv>
#include <string>

namespace KSETUP {

namespace {

/// The number in the only line NAME="NUMBER" among the first ones, where makeself writes it; nothing
/// for none, for two, or for what is no number.
std::optional<std::uint64_t> FindNumber(std::string_view begin, const std::string& name) {
    constexpr unsigned linesSearched = 60;
    const std::string assignment = name + "=\"";
    std::optional<std::uint64_t> found;
    for (unsigned line = 0; line < linesSearched && !begin.empty(); ++line) {
        const std::string_view text = begin.substr(0, begin.find('\n'));
        begin.remove_prefix(text.size() + (text.size() < begin.size() ? 1 : 0));
        if (!text.starts_with(assignment)) {
            continue;
        }
        std::uint64_t number = 0;
        const char* const first = text.data() + assignment.size();
        const char* const last = text.data() + text.size() - 1;
        const auto read = first < last ? std::from_chars(first, last, number)
                                       : std::from_chars_result{first, std::errc::invalid_argument};
        if (read.ec != std::errc() || read.ptr != last || *last != '"' || found) {
            return std::nullopt;
        }
        found = number;
    }
    return found;
}

} // namespace

std::optional<KBundlePayload> FindBundlePayload(std::string_view begin) {
    const auto lines = FindNumber(begin, "skip");
    const auto byteCount = FindNumber(begin, "filesizes");
    if (!begin.starts_with("#!/bin/sh\n") || !lines || !byteCount || *lines == 0) {
        return std::nullopt;
    }
    std::size_t offset = 0;
    for (std::uint64_t line = 0; line < *lines; ++line) {
        const std::size_t end = begin.find('\n', offset);
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        offset = end + 1;
    }
    return KBundlePayload{offset, *byteCount};
}

} // namespace KSETUP
