// SPDX-License-Identifier: MIT
#include <setup/output/KSetupProgress.h>
#include <setup/output/ProgressLines.h>
#include <setup/output/TerminalColour.h>
#include <setup/output/TextFormat.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include <sys/files/FileCalls.h>
#include <sys/processes/Terminal.h>

namespace KSETUP {

namespace {

constexpr auto drawInterval = std::chrono::milliseconds(100);
constexpr auto lineInterval = std::chrono::seconds(10); // of a rule that takes long
constexpr unsigned usualColumns = 80;

/// One column stays free: a terminal would go to the next line when the last one is written.
std::size_t Cells() {
    const unsigned columns = KSYS::TerminalColumns(STDOUT_FILENO);
    return std::max(columns > 0 ? columns : usualColumns, 2U) - 1;
}

/// One write, so that a line is whole however it is read.
void Write(std::string_view text) {
    // A reader who is gone is no reason to stop.
    static_cast<void>(KSYS::WriteAll(STDOUT_FILENO, text.data(), text.size()));
}

KText Numbered(const KProgressView& view, const KText& words) {
    return "[" + std::to_string(view.rule) + "/" + std::to_string(view.rules) + "] " +
           Printable(words);
}

} // namespace

KSetupProgress::KSetupProgress(bool isColoured)
    : terminal(CanDraw(STDOUT_FILENO)),
      colour(isColoured) {}

void KSetupProgress::BeginRule(const KProgressView& view, Clock::time_point time) {
    if (!terminal) {
        Write(Numbered(view, view.words).Translated() + "\n");
        lastShown = time;
    }
}

void KSetupProgress::Show(const KProgressView& view, bool now, Clock::time_point time) {
    if (terminal) {
        if (now || time - lastShown >= drawInterval) {
            lastShown = time;
            rate.Note(time, view.bytesDone);
            Draw(ProgressLines(view, rate, {Cells(), colour}));
        }
    } else if (!now && time - lastShown >= lineInterval) {
        lastShown = time;
        Write(
            Text("%s, %s%% of all", Numbered(view, view.status), view.percent).Translated() + "\n"
        );
    }
}

void KSetupProgress::End(const KProgressView& view) {
    if (terminal && !shown.empty()) {
        Draw({ProgressBar(view, rate, {Cells(), colour})});
        Finish();
    }
}

/// The cursor rests behind the last line, where what is typed does the least harm.
void KSetupProgress::Draw(std::vector<std::string> lines) {
    if (lines == shown) {
        return;
    }
    std::string text = shown.empty() ? "" : "\r";
    for (std::size_t line = 1; line < shown.size(); ++line) {
        text += "\x1b[A";
    }
    for (std::size_t line = 0; line < lines.size(); ++line) {
        text += (line == 0 ? "" : "\r\n") + lines[line] + "\x1b[K";
    }
    Write(text + (shown.size() > lines.size() ? "\x1b[J" : ""));
    shown = std::move(lines);
}

void KSetupProgress::Finish() {
    if (!shown.empty()) {
        Write("\n");
        shown.clear();
    }
}

} // namespace KSETUP
