// SPDX-License-Identifier: MIT
#include <setup/kit/BundlePayload.h>

#include <charconv>
#include <string>

namespace KSETUP {

namespace {

/// Without zeros in front: the shell that runs the bundle would take such a number for an octal one.
std::optional<std::uint64_t> ReadNumber(std::string_view digits) {
    std::uint64_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto read = std::from_chars(digits.data(), end, number);
    return read.ec == std::errc() && read.ptr == end && std::to_string(number) == digits
               ? std::optional(number)
               : std::nullopt;
}

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
        const std::string_view quoted = text.substr(assignment.size());
        const auto number = quoted.ends_with('"') && !found
                                ? ReadNumber(quoted.substr(0, quoted.size() - 1))
                                : std::nullopt;
        if (!number) {
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
