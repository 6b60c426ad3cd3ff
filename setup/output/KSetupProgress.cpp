// SPDX-License-Identifier: MIT
#include <setup/output/KSetupProgress.h>
#include <setup/output/TextFormat.h>

#include <cstdlib>
#include <string_view>

#include <sys/files/FileCalls.h>
#include <sys/processes/Terminal.h>

namespace KSETUP {

namespace {

constexpr auto drawInterval = std::chrono::milliseconds(100);
constexpr unsigned usualColumns = 80;

bool IsTerminalOutput() {
    const char* type = std::getenv("TERM"); // NOLINT: before there are other threads
    return KSYS::IsTerminal(STDOUT_FILENO) && type != nullptr && std::string_view(type) != "dumb";
}

unsigned Columns() {
    const unsigned columns = KSYS::TerminalColumns(STDOUT_FILENO);
    return columns > 0 ? columns : usualColumns;
}

/// One write, so that a line is whole however it is read.
void Write(std::string_view text) {
    // A reader who is gone is no reason to stop.
    static_cast<void>(KSYS::WriteAll(STDOUT_FILENO, text.data(), text.size()));
}

std::string Line(unsigned done, unsigned all, const KSUP::KString& status) {
    return "[" + std::to_string(done) + "/" + std::to_string(all) + "] " +
           Printable(status.c_str());
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
