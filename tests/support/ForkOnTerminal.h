// SPDX-License-Identifier: MIT
#pragma once

#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace KTEST {

/// As forkpty(3), with 24 lines of so many columns. With Ctrl-C the kernel throws away what nobody has
/// read by then (NOFLSH in termios(3)), and on another processor the program may have said by then
/// why it stops: here it stays.
inline pid_t ForkOnTerminal(int& terminal, unsigned columns) {
    winsize size{};
    size.ws_row = 24;
    size.ws_col = static_cast<unsigned short>(columns);
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, &size);
    termios modes{};
    if (child == 0 && ::tcgetattr(STDIN_FILENO, &modes) == 0) {
        modes.c_lflag |= NOFLSH;
        ::tcsetattr(STDIN_FILENO, TCSANOW, &modes);
    }
    return child;
}

} // namespace KTEST
