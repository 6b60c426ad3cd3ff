// SPDX-License-Identifier: MIT
#include <setup/output/KSetupProgress.h>
#include <sup++/Txt.h>

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

/// One write, so that a line is whole however it is read. A reader who is gone is no reason to
/// stop.
void Write(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
        if (written <= 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::string Counted(unsigned done, unsigned all, const KSUP::KString& status) {
    return "[" + std::to_string(done) + "/" + std::to_string(all) + "] " +
           KSetupProgress::Printable(status);
}

} // namespace

KSetupProgress::KSetupProgress() : terminal(IsTerminalOutput()) {}

std::string KSetupProgress::Printable(const KSUP::KString& text) {
    std::string printable;
    for (const char* at = text.c_str(); *at != '\0'; at = Txtnext(at)) {
        const std::size_t size = Txtchrsize(at);
        const auto byte = static_cast<unsigned char>(*at);
        // A single byte above ASCII is no UTF-8; the second byte of C2 80 to C2 9F is a control
        // too.
        const bool control = size == 1 ? byte < 0x20 || byte >= 0x7F
                                       : byte == 0xC2 && static_cast<unsigned char>(at[1]) < 0xA0;
        printable.append(control ? "?" : at, control ? 1 : size);
    }
    return printable;
}

void KSetupProgress::Draw(unsigned done, unsigned all, const KSUP::KString& status, bool now) {
    const Clock::time_point time = Clock::now();
    if (!terminal || (!now && time - lastDrawn < drawInterval)) {
        return;
    }
    lastDrawn = time;
    // One column stays free: a terminal would go to the next line when the last one is written.
    const KSUP::KString line = KSUP::KString(Counted(done, all, status)).Left(Columns() - 1);
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
        Write(Counted(number, all, text) + "\n");
    }
}

} // namespace KSETUP
