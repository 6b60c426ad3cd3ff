// SPDX-License-Identifier: MIT
#include <setup/output/KPrintableOutput.h>
#include <setup/output/TerminalColour.h>
#include <setup/output/TextFormat.h>

#include <cstdlib>
#include <string_view>

#include <sys/files/FileCalls.h>
#include <sys/processes/Terminal.h>

namespace KSETUP {

namespace {

std::string_view Variable(const char* name) {
    const char* value = std::getenv(name); // NOLINT: before there are other threads
    return value != nullptr ? value : "";
}

} // namespace

bool CanDraw(int descriptor) {
    const std::string_view type = Variable("TERM");
    return KSYS::IsTerminal(descriptor) && !type.empty() && type != "dumb";
}

bool HasColour(KColourChoice choice, int descriptor) {
    return choice == KColourChoice::Automatic ? CanDraw(descriptor) && Variable("NO_COLOR").empty()
                                              : choice == KColourChoice::Always;
}

void WriteColoured(
    std::ostream& stream, int descriptor, const char* numbers, const std::string& text
) {
    const std::string before = std::string("\x1b[") + numbers + "m";
    const std::string after = "\x1b[0m";
    if (auto* const printable = dynamic_cast<KPrintableOutput*>(stream.rdbuf())) {
        printable->WriteBetween(before, Printable(text), after);
        return;
    }
    const std::string whole = before + Printable(text) + after;
    stream.flush();
    // A reader who is gone is no reason to stop.
    static_cast<void>(KSYS::WriteAll(descriptor, whole.data(), whole.size()));
}

} // namespace KSETUP
