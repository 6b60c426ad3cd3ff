// SPDX-License-Identifier: MIT
#pragma once

#include "CaseFile.h"

#include <string>

namespace KTEST {

/// What came of a case.
struct Verdict {
    bool passed = false;
    unsigned seconds = 0; ///< that it took
    std::string text;     ///< for a person: what differs; "" for one that passed
    std::string accepted; ///< the case's file with what came in place of what was expected
};

/// A case of the engine, as main.cpp finds it below tests/cases.
///
/// Throws   CaseError for a case with a mistake in it; std::system_error
Verdict TryEngineCase(const CaseFile& file);

} // namespace KTEST
