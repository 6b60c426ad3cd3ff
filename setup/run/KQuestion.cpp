// SPDX-License-Identifier: MIT
#include <setup/output/KWordWrap.h>
#include <setup/run/KQuestion.h>

#include <iostream>

#include <sys/files/FileCalls.h>
#include <sys/processes/Terminal.h>
#include <unistd.h>

namespace KSETUP {

KQuestion::KQuestion(const KRunContext& runContext)
    : context(runContext),
      isWanted(
          !context.arguments.yes && context.reporter.IsText() && KSYS::IsTerminal(STDIN_FILENO)
      ) {
    if (isWanted) {
        static_cast<void>(KSYS::OpenControllingTerminal(terminal)); // CanAsk tells
    }
}

bool KQuestion::CanAsk() const noexcept {
    return isWanted && (terminal.IsOpen() || KSYS::IsTerminal(STDOUT_FILENO));
}

int KQuestion::Output() const noexcept {
    return terminal.IsOpen() ? terminal.Get() : STDOUT_FILENO;
}

void KQuestion::Tell(const KText& words) const {
    std::cout << std::flush; // in the order in which things happened
    const std::string text = WrapWords(words.Translated(), KSYS::TerminalColumns(Output()));
    // A terminal that goes away now ends the answer, too.
    static_cast<void>(KSYS::WriteAll(Output(), text.data(), text.size()));
}

std::optional<std::string> KQuestion::Ask(const KText& words, Echo echo) const {
    const int input = terminal.IsOpen() ? terminal.Get() : STDIN_FILENO;
    std::optional<std::string> answer;
    {
        const std::optional<KSYS::KHiddenInput> hidden =
            echo == Echo::Off ? std::optional<KSYS::KHiddenInput>(std::in_place, input)
                              : std::nullopt;
        Tell(words);
        answer = context.signals.ReadLine(input);
    }
    if (!answer || echo == Echo::Off) { // the end of the line that nobody sees
        Tell("\n");
    }
    return answer;
}

} // namespace KSETUP
