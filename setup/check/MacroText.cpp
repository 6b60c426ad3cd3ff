// SPDX-License-Identifier: MIT
#include <setup/check/MacroText.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <numeric>

namespace KSETUP {

namespace {

constexpr std::size_t mostWrongLetters = 2;

/// How many letters are to be changed, added or taken away.
std::size_t Distance(const std::string& left, const std::string& right) {
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < right.size(); ++j) {
            const std::size_t changed = diagonal + (left[i] == right[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

} // namespace

std::vector<KMacroMention> FindMacros(const std::string& text, const KMacroContext& macros) {
    std::vector<KMacroMention> found;
    std::size_t dollar = text.find('$');
    while (dollar != std::string::npos) {
        const std::size_t end = text.find('$', dollar + 1);
        KMacroMention mention;
        mention.offset = dollar;
        mention.isClosed = end != std::string::npos;
        mention.name = text.substr(dollar + 1, mention.isClosed ? end - dollar - 1 : end);
        mention.isKnown = mention.isClosed && macros.IsKnown(mention.name);
        // The second dollar of what is no macro may begin one.
        dollar = mention.isKnown ? text.find('$', end + 1) : end;
        found.push_back(std::move(mention));
    }
    return found;
}

std::string PatternOf(const std::string& text, const KMacroContext& macros) {
    std::string pattern;
    std::size_t at = 0;
    for (const KMacroMention& mention : FindMacros(text, macros)) {
        if (mention.isKnown) {
            pattern += text.substr(at, mention.offset - at) + "*";
            at = mention.offset + mention.name.size() + 2;
        }
    }
    return pattern + text.substr(at);
}

std::string_view IdentifierAt(std::string_view text) noexcept {
    const auto end = std::find_if(text.begin(), text.end(), [](char byte) {
        return !(
            (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
            (byte >= '0' && byte <= '9') || byte == '_'
        );
    });
    return text.substr(0, static_cast<std::size_t>(end - text.begin()));
}

std::string FindMeant(const std::string& written, const std::vector<std::string>& known) {
    const std::string lowered = Lowered(written);
    std::string best;
    std::size_t bestDistance = mostWrongLetters + 1;
    for (const std::string& one : known) {
        const std::size_t distance = Distance(lowered, Lowered(one));
        if (distance < bestDistance && distance < one.size()) {
            best = one;
            bestDistance = distance;
        }
    }
    return best;
}

} // namespace KSETUP
