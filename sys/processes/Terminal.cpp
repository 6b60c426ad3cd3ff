// SPDX-License-Identifier: MIT
#include <cerrno>
#include <clocale>
#include <cwchar>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/processes/Terminal.h>
#include <termios.h>
#include <unistd.h>

namespace KSYS {

bool IsTerminal(int descriptor) noexcept {
    return ::isatty(descriptor) != 0;
}

unsigned TerminalColumns(int descriptor) noexcept {
    winsize size{};
    return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0U;
}

std::size_t CellsOf(const char* letter, std::size_t bytes) noexcept {
    static const locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (bytes <= 1 || utf8 == nullptr) {
        return 1;
    }
    const locale_t former = ::uselocale(utf8);
    wchar_t wide = 0;
    std::mbstate_t state{};
    const bool isLetter = std::mbrtowc(&wide, letter, bytes, &state) == bytes;
    const int cells = isLetter ? ::wcwidth(wide) : 1;
    ::uselocale(former);
    return cells < 0 ? 1 : static_cast<std::size_t>(cells);
}

unsigned OpenControllingTerminal(KDescriptor& opened) noexcept {
    opened.Reset(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
    return opened.IsOpen() ? 0 : static_cast<unsigned>(errno);
}

KHiddenInput::KHiddenInput(int descriptor) noexcept {
    termios modes{};
    if (::tcgetattr(descriptor, &modes) != 0) {
        return;
    }
    formerModes = modes.c_lflag;
    modes.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK | ECHONL);
    if (::tcsetattr(descriptor, TCSANOW, &modes) == 0) {
        terminal = descriptor;
    }
}

KHiddenInput::~KHiddenInput() {
    termios modes{};
    if (terminal >= 0 && ::tcgetattr(terminal, &modes) == 0) {
        modes.c_lflag = formerModes;
        ::tcsetattr(terminal, TCSANOW, &modes); // one that is gone shows nothing anyway
    }
}

bool IsReaderGone(int descriptor) noexcept {
    pollfd output{descriptor, POLLOUT, 0};
    return ::poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

} // namespace KSYS
