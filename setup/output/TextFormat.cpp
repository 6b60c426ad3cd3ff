// SPDX-License-Identifier: MIT
#include <setup/output/TextFormat.h>
#include <sup++/Txt.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace KSETUP {

namespace {

/// Of ASCII, and no control character.
bool IsPlain(char byte) noexcept {
    return byte >= ' ' && byte <= '~';
}

} // namespace

std::string Printable(const std::string& text, KLineEnds ends) {
    std::string shown;
    shown.reserve(text.size());
    const char* const end = text.c_str() + text.size();
    for (const char* at = text.c_str();;) {
        const char* const other = std::find_if_not(at, end, IsPlain); // mostly there is none
        shown.append(at, other);
        at = other;
        if (at == end) {
            return shown;
        }
        const std::size_t size = std::max<std::size_t>(Txtchrsize(at), 1); // 0 for a NUL
        const auto byte = static_cast<unsigned char>(*at);
        // A single byte above ASCII is no UTF-8; the second byte of C2 80 to C2 9F is a control
        // too.
        const bool control = size == 1 ? byte < 0x20 || byte >= 0x7F
                                       : byte == 0xC2 && static_cast<unsigned char>(at[1]) < 0xA0;
        if (control && (byte != '\n' || ends == KLineEnds::Replaced)) {
            shown += '?';
        } else {
            shown.append(at, size);
        }
        at += size;
    }
}

KText Printable(const KText& text, KLineEnds ends) {
    return {Printable(text.English(), ends), Printable(text.Translated(), ends)};
}

KText DecimalText(double number) {
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%.1f", number); // of the locale "C"
    const std::string both = text.data();
    const std::size_t point = both.find('.');
    // TRANSLATORS: a number, with the sign that separates its decimal: "17.7"
    return Text("%s.%s", both.substr(0, point), both.substr(point + 1));
}

KText BytesInWords(std::uint64_t bytes) {
    static constexpr std::array units = {"KiB", "MiB", "GiB", "TiB"};
    constexpr double step = 1024;
    if (bytes < static_cast<std::uint64_t>(step)) {
        return Counted(bytes, "%s byte", "%s bytes");
    }
    auto value = static_cast<double>(bytes) / step;
    std::size_t unit = 0;
    for (; value >= step && unit + 1 < units.size(); ++unit) {
        value /= step;
    }
    return DecimalText(value) + " " + units[unit];
}

std::string ModeText(unsigned mode) {
    constexpr unsigned permissions = 07777;
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%04o", mode & permissions);
    return text.data();
}

} // namespace KSETUP
