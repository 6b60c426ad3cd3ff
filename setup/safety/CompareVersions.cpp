// SPDX-License-Identifier: MIT
#include <setup/safety/CompareVersions.h>

#include <algorithm>
#include <array>

namespace KSETUP {

namespace {

bool IsDigit(char byte) noexcept {
    return byte >= '0' && byte <= '9';
}

bool IsSeparator(char byte) noexcept {
    return byte == '.' || byte == '-' || byte == '_' || byte == '+' || byte == ' ';
}

/// Takes the next part off a version: a number without its leading zeros, or a word. A number 0 is
/// as empty as the end.
struct Part {
    explicit Part(std::string_view& rest) noexcept {
        while (!rest.empty() && IsSeparator(rest.front())) {
            rest.remove_prefix(1);
        }
        isNumber = rest.empty() || IsDigit(rest.front());
        const auto* const end = std::find_if(rest.begin(), rest.end(), [this](char byte) {
            return IsSeparator(byte) || IsDigit(byte) != isNumber;
        });
        text = rest.substr(0, static_cast<std::size_t>(end - rest.begin()));
        rest.remove_prefix(text.size());
        while (isNumber && !text.empty() && text.front() == '0') {
            text.remove_prefix(1);
        }
    }

    /// The classes of parts, the oldest first: the words of a version to come, nothing or 0, other
    /// words, numbers.
    int GetRank() const noexcept {
        static constexpr std::array words =
            std::to_array<std::string_view>({"~", "dev", "alpha", "beta", "pre", "rc"});
        if (isNumber) {
            return text.empty() ? 0 : 2;
        }
        const auto* const found = std::find_if(words.begin(), words.end(), [this](auto word) {
            return std::equal(
                word.begin(),
                word.end(),
                text.begin(),
                text.end(),
                [](char low, char byte) {
                    return low == byte || (byte >= 'A' && byte <= 'Z' && low == byte - 'A' + 'a');
                }
            );
        });
        return found == words.end() ? 1 : static_cast<int>(found - words.end());
    }

    bool isNumber = true;
    std::string_view text;
};

std::string_view WithoutV(std::string_view version) noexcept {
    const bool has = version.size() > 1 && (version[0] == 'v' || version[0] == 'V');
    return has && IsDigit(version[1]) ? version.substr(1) : version;
}

} // namespace

int CompareVersions(std::string_view one, std::string_view other) noexcept {
    one = WithoutV(one);
    other = WithoutV(other);
    while (!one.empty() || !other.empty()) {
        const Part mine(one);
        const Part others(other);
        if (const int order = mine.GetRank() - others.GetRank(); order != 0) {
            return order;
        }
        if (mine.isNumber && mine.text.size() != others.text.size()) {
            return mine.text.size() < others.text.size() ? -1 : 1;
        }
        // Words of a version to come that have the same rank are the same but for their case.
        const int order = mine.GetRank() < 0 ? 0 : mine.text.compare(others.text);
        if (order != 0) {
            return order;
        }
    }
    return 0;
}

} // namespace KSETUP
