// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>

#include <sys/services/KServiceError.h>

namespace KTEST {

/// Runs `action` and returns the KServiceError that it throws.
///
/// Throws   std::logic_error when it throws none, so that the test fails with these words
template <class Action>
KSYS::KServiceError ServiceErrorOf(Action&& action) {
    try {
        action();
    } catch (const KSYS::KServiceError& error) {
        return error;
    }
    throw std::logic_error("expected a KServiceError, but nothing was thrown");
}

/// The status of the error that `action` throws, 0 when it throws none.
template <class Action>
unsigned StatusOf(Action&& action) {
    try {
        action();
    } catch (const KSYS::KServiceError& error) {
        return error.GetStatus();
    }
    return 0;
}

} // namespace KTEST
