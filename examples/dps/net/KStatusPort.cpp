// SPDX-License-Identifier: MIT
#include "dps/net/KStatusPort.h"

#include <cerrno>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace DPS {

namespace {

constexpr unsigned highestPort = 65535;
constexpr int waiting = 8; // connections

[[noreturn]] void Refuse(int reason, unsigned port) {
    throw std::system_error(
        reason, std::generic_category(), "port " + std::to_string(port) + " of 127.0.0.1"
    );
}

} // namespace

KStatusPort::KStatusPort(unsigned port) {
    if (port == 0) {
        return;
    }
    if (port > highestPort) {
        Refuse(ERANGE, port);
    }
    listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listener < 0) {
        Refuse(errno, port);
    }
    // A restart must not wait for the former connections to be forgotten.
    const int on = 1;
    static_cast<void>(::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto* place = reinterpret_cast<const sockaddr*>(&address);
    if (::bind(listener, place, sizeof(address)) != 0 || ::listen(listener, waiting) != 0) {
        const int reason = errno;
        ::close(listener);
        Refuse(reason, port);
    }
}

KStatusPort::~KStatusPort() {
    if (listener >= 0) {
        ::close(listener);
    }
}

bool KStatusPort::Answer(const std::string& line) const noexcept {
    const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (connection < 0) {
        return false;
    }
    // A line always fits into the buffer of a new connection.
    const ssize_t sent = ::send(connection, line.data(), line.size(), MSG_NOSIGNAL);
    ::close(connection);
    return sent == static_cast<ssize_t>(line.size());
}

} // namespace DPS
