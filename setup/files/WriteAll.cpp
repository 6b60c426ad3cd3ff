// SPDX-License-Identifier: MIT
#include <setup/files/WriteAll.h>

#include <cerrno>

#include <unistd.h>

namespace KSETUP {

int WriteAll(int file, std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0) {
            return EIO; // no error and no step: it would go on for ever
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

} // namespace KSETUP
