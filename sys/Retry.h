// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>

namespace KSYS {

/// Makes a call that answers with less than 0 and errno, again as long as a signal interrupts it.
/// close(2) must not be made this way.
template <class Call>
auto Retry(Call call) noexcept {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace KSYS
