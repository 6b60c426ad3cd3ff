// SPDX-License-Identifier: MIT
#include <setup/files/WriteAll.h>
#include <setup/output/KSetupProgress.h>
#include <setup/output/Words.h>

#include <cstdlib>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

namespace KSETUP {

namespace {

constexpr auto drawInterval = std::chrono::milliseconds(100);
constexpr unsigned usualColumns = 80;

bool IsTerminalOutput() {
    const char* type = std::getenv("TERM"); // NOLINT: before there are other threads
    return ::isatty(STDOUT_FILENO) != 0 && type != nullptr && std::string_view(type) != "dumb";
}

unsigned Columns() {
    winsize size{};
    const bool known = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : usualColumns;
}

/// One write, so that a line is whole however it is read.
void Write(std::string_view text) {
    static_cast<void>(WriteAll(STDOUT_FILENO, text)); // a reader who is gone is no reason to stop
}

std::string Line(unsigned done, unsigned all, const KSUP::KString& status) {
    return "[" + std::to_string(done) + "/" + std::to_string(all) + "] " + Shown(status.c_str());
}

} // namespace

KSetupProgress::KSetupProgress() : terminal(IsTerminalOutput()) {}

void KSetupProgress::Draw(unsigned done, unsigned all, const KSUP::KString& status, bool now) {
    const Clock::time_point time = Clock::now();
    if (!terminal || (!now && time - lastDrawn < drawInterval)) {
        return;
    }
    lastDrawn = time;
    // One column stays free: a terminal would go to the next line when the last one is written.
    const KSUP::KString line = KSUP::KString(Line(done, all, status)).Left(Columns() - 1);
    if (line != shown.c_str()) {
        shown = line.c_str();
        Write("\r" + shown + "\x1b[K");
    }
}

void KSetupProgress::Finish() {
    if (!shown.empty()) {
        Write("\n");
        shown.clear();
    }
}

void KSetupProgress::WriteLine(unsigned number, unsigned all, const KSUP::KString& text) {
    if (!terminal) {
        Write(Line(number, all, text) + "\n");
    }
}

} // namespace KSETUP
