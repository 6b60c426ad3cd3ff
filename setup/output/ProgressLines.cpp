// SPDX-License-Identifier: MIT
#include <setup/output/ProgressLines.h>
#include <setup/output/TextCells.h>
#include <setup/output/TextFormat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace KSETUP {

namespace {

constexpr std::size_t leastBar = 10;
constexpr std::size_t mostBar = 40;
constexpr std::size_t besideFrom = 110; // cells, for the bar and a rule in one line
constexpr std::string_view dots = "...";
constexpr std::string_view gap = "  ";
/// What the details behind a bar may take, so that the bar keeps its width while they change.
constexpr std::array<std::size_t, 4> reserved = {52, 38, 11, 0};

std::string PercentText(unsigned percent) {
    const std::string number = std::to_string(percent);
    return std::string(3 - std::min<std::size_t>(number.size(), 3), ' ') + number + "%";
}

/// "1:05", "1:02:05".
std::string TimeText(std::chrono::seconds time) {
    const auto hours = std::chrono::duration_cast<std::chrono::hours>(time);
    const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(time - hours);
    char text[64];
    if (hours.count() > 0) {
        std::snprintf(
            text,
            sizeof(text),
            "%lld:%02lld:%02lld",
            static_cast<long long>(hours.count()),
            static_cast<long long>(minutes.count()),
            static_cast<long long>((time - hours - minutes).count())
        );
    } else {
        std::snprintf(
            text,
            sizeof(text),
            "%lld:%02lld",
            static_cast<long long>(minutes.count()),
            static_cast<long long>((time - minutes).count())
        );
    }
    return text;
}

/// What may stand behind the bar, as `reserved` has room for it.
std::array<std::string, reserved.size()>
Details(const KProgressView& view, const KProgressRate& rate) {
    if (view.bytesAll == 0) {
        return {};
    }
    const std::string bytes =
        " " +
        Text("%s of %s", BytesInWords(view.bytesDone), BytesInWords(view.bytesAll)).Translated();
    const auto speed = rate.Get();
    const auto time = rate.GetTimeFor(view.bytesAll - std::min(view.bytesDone, view.bytesAll));
    const bool goesOn = view.bytesDone < view.bytesAll;
    const std::string fast =
        speed && goesOn
            ? ", " + BytesInWords(static_cast<std::uint64_t>(*speed)).Translated() + "/s"
            : "";
    const std::string left = time && goesOn ? Text("%s left", TimeText(*time)).Translated() : "";
    const std::string comma = left.empty() ? "" : ", ";
    const std::string blank = left.empty() ? "" : " ";
    return {bytes + fast + comma + left, bytes + comma + left, blank + left, ""};
}

std::string Painted(const std::string& text, const char* colour, bool isColoured) {
    return isColoured && !text.empty() ? std::string("\x1b[") + colour + "m" + text + "\x1b[0m"
                                       : text;
}

} // namespace

std::string
ProgressBar(const KProgressView& view, const KProgressRate& rate, const KTerminalLook& look) {
    const std::string percent = PercentText(view.percent);
    constexpr std::size_t around = 3; // a blank and two brackets
    if (look.cells < percent.size() + around + leastBar) {
        return FirstCells(percent, look.cells);
    }
    const std::size_t room = look.cells - percent.size() - around;
    std::size_t chosen = view.bytesAll == 0 ? reserved.size() - 1 : 0;
    const std::array<std::string, reserved.size()> details = Details(view, rate);
    while (reserved[chosen] + leastBar > room || TextCells(details[chosen]) > reserved[chosen]) {
        ++chosen; // the last one takes nothing
    }
    const std::size_t bar = std::min(mostBar, room - reserved[chosen]);
    const std::size_t filled = bar * std::min(view.percent, 100U) / 100;
    return Painted(percent, "1", look.colour) + " [" +
           Painted(std::string(filled, '#'), "32", look.colour) + std::string(bar - filled, '.') +
           "]" + details[chosen];
}

std::string RuleLine(const KProgressView& view, std::size_t cells) {
    const std::string number =
        "[" + std::to_string(view.rule) + "/" + std::to_string(view.rules) + "] ";
    const std::string words = Printable(view.words.Translated());
    if (TextCells(number + words) <= cells) {
        return number + words;
    }
    // The end of a path tells more than its beginning.
    const std::size_t path = words.find(" /");
    const std::string verb = path == std::string::npos ? "" : words.substr(0, path + 1);
    const std::size_t taken = TextCells(number + verb) + dots.size();
    if (verb.empty() || taken + leastBar > cells) {
        return cells <= dots.size()
                   ? FirstCells(number + words, cells)
                   : FirstCells(number + words, cells - dots.size()) + std::string(dots);
    }
    return number + verb + std::string(dots) + LastCells(words, cells - taken);
}

std::vector<std::string>
ProgressLines(const KProgressView& view, const KProgressRate& rate, const KTerminalLook& look) {
    if (look.cells < besideFrom) {
        return {ProgressBar(view, rate, look), RuleLine(view, look.cells)};
    }
    // The rule has the other half, and always begins at the same place.
    KTerminalLook half = look;
    half.cells = besideFrom * 3 / 4;
    std::string bar = ProgressBar(view, rate, half);
    half.colour = false;
    const std::size_t cells = TextCells(ProgressBar(view, rate, half));
    bar += std::string(half.cells - std::min(cells, half.cells), ' ') + std::string(gap);
    return {bar + RuleLine(view, look.cells - half.cells - gap.size())};
}

} // namespace KSETUP
