// SPDX-License-Identifier: MIT
#include <setup/text/KText.h>
#include <setup/text/Translation.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

namespace KSETUP {

namespace {

using Language = const std::string& (KText::*)() const;

/// The number of "%2$s", counted from 0, and what follows it; the next one in turn for "%s".
std::size_t TakeNumber(std::string_view& rest, std::size_t& next) {
    std::size_t number = 0;
    std::size_t at = 0;
    while (at < rest.size() && rest[at] >= '0' && rest[at] <= '9') {
        number = number * 10 + static_cast<std::size_t>(rest[at] - '0');
        ++at;
    }
    const bool isNumbered = at > 0 && at < rest.size() && rest[at] == '$';
    rest.remove_prefix(std::min(rest.size(), isNumbered ? at + 2 : 1)); // with the "s"
    return isNumbered ? number - 1 : next++;
}

/// What has no argument stays out: a translation was compared with its format when it was made.
std::string
Formatted(std::string_view format, const std::vector<KText>& arguments, Language language) {
    std::string text;
    std::size_t next = 0;
    for (std::size_t at = 0; (at = format.find('%')) != std::string_view::npos;) {
        text += format.substr(0, at);
        format.remove_prefix(at + 1);
        if (format.starts_with('%')) {
            text += '%';
            format.remove_prefix(1);
        } else if (const std::size_t number = TakeNumber(format, next); number < arguments.size()) {
            text += (arguments[number].*language)();
        }
    }
    return text += format;
}

} // namespace

const std::string KText::none;

KText& KText::operator+=(const KText& more) {
    if (!more.texts) {
        return *this;
    }
    if (!texts) {
        return *this = more;
    }
    if (texts.use_count() > 1) {
        texts = std::make_shared<Texts>(*texts);
    }
    texts->english += more.English();
    texts->translated += more.Translated();
    return *this;
}

KText FormatText(const char* format, std::initializer_list<KText> arguments) {
    return {
        Formatted(format, arguments, &KText::English),
        Formatted(FindTranslation(format), arguments, &KText::Translated)};
}

KText FormatCounted(
    std::uint64_t count, const char* one, const char* many, std::initializer_list<KText> arguments
) {
    return {
        Formatted(count == 1 ? one : many, arguments, &KText::English),
        Formatted(FindTranslation(one, many, count), arguments, &KText::Translated)};
}

} // namespace KSETUP
