// SPDX-License-Identifier: MIT
#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/processes/Terminal.h>
#include <unistd.h>

namespace KSYS {

bool IsTerminal(int descriptor) noexcept {
    return ::isatty(descriptor) != 0;
}

unsigned TerminalColumns(int descriptor) noexcept {
    winsize size{};
    return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0U;
}

unsigned OpenControllingTerminal(KDescriptor& opened) noexcept {
    opened.Reset(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
    return opened.IsOpen() ? 0 : static_cast<unsigned>(errno);
}

bool IsReaderGone(int descriptor) noexcept {
    pollfd output{descriptor, POLLOUT, 0};
    return ::poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

} // namespace KSYS
