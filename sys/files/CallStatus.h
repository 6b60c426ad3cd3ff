// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>

namespace KSYS {

/// errno, as the status that the functions of this library answer with.
inline unsigned LastError() noexcept {
    return static_cast<unsigned>(errno);
}

/// The status of a call that answers with less than 0 and errno.
inline unsigned StatusOf(long result) noexcept {
    return result >= 0 ? 0 : LastError();
}

} // namespace KSYS
