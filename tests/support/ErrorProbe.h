// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KError.h>

#include <stdexcept>
#include <string>

namespace KTEST {

/// Where and why an error was raised, on one line:
///
///     48 7000.0 ins/KFileRule:175 ParseRule "copy,a"
///
/// Without information the quoted text is missing.
std::string Place(const KSUP::KErrorBase& error);
/// The same with "?" instead of the line's number, where the compiler chooses it.
std::string PlaceWithoutLine(const KSUP::KErrorBase& error);

/// Runs `action` and returns the KError that it throws.
///
/// Throws   std::logic_error when it throws none, so that the test fails with these words
template <class Action>
KSUP::KError ErrorOf(Action&& action) {
    try {
        action();
    } catch (const KSUP::KError& error) {
        return error;
    }
    throw std::logic_error("expected a KError, but nothing was thrown");
}

} // namespace KTEST
