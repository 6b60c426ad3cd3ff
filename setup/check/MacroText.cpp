// SPDX-License-Identifier: MIT
#include <setup/check/MacroText.h>

#include <algorithm>

namespace KSETUP {

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

} // namespace KSETUP
