// SPDX-License-Identifier: MIT
#include <setup/check/Suppressions.h>

#include <algorithm>
#include <string_view>

namespace KSETUP {

namespace {

/// The words of a comment, which are views into the line; none for a line that is no comment.
std::vector<std::string_view> WordsOfComment(std::string_view text) {
    constexpr std::string_view between = " \t,";
    std::size_t at = text.find_first_not_of(" \t");
    if (at == std::string_view::npos || (text[at] != ';' && text[at] != '#')) {
        return {};
    }
    std::vector<std::string_view> words;
    for (++at; (at = text.find_first_not_of(between, at)) != std::string_view::npos;) {
        const std::size_t end = std::min(text.find_first_of(between, at), text.size());
        words.push_back(text.substr(at, end - at));
        at = end;
    }
    return words;
}

} // namespace

std::vector<KSuppression> ReadSuppressions(const KScript& script) {
    std::vector<KSuppression> suppressions;
    for (unsigned number = 1; number <= script.GetLineCount(); ++number) {
        const std::string_view text = script.GetText(number);
        const std::vector<std::string_view> words = WordsOfComment(text);
        if (words.size() < 2 || words[0] != "check:" || words[1] != "allow") {
            continue;
        }
        const auto columnOf = [&](std::string_view word) {
            return static_cast<unsigned>(word.data() - text.data()) + 1;
        };
        if (words.size() == 2) {
            suppressions.push_back({number, columnOf(words[1]), ""});
        }
        for (std::size_t index = 2; index < words.size(); ++index) {
            suppressions.push_back({number, columnOf(words[index]), std::string(words[index])});
        }
    }
    return suppressions;
}

KAllowedWarnings::KAllowedWarnings(const KScript& script) {
    for (KSuppression& suppression : ReadSuppressions(script)) {
        allowed.emplace(suppression.line, std::move(suppression.name));
    }
}

bool KAllowedWarnings::Has(const KFinding& finding) const {
    return finding.severity == KSeverity::Warning && finding.file == "install.ini" &&
           finding.line > 0 && allowed.contains({finding.line - 1, finding.rule});
}

} // namespace KSETUP
