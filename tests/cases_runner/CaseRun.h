// SPDX-License-Identifier: MIT
#pragma once

#include "CaseFile.h"

#include <string>
#include <vector>

namespace KTEST {

/// What one run did, or was expected to do: lines as the sections of a case have them, with
/// placeholders for what differs from time to time.
struct Outcome {
    std::vector<std::string> status;
    std::vector<std::string> log;
    std::vector<std::string> result;
    std::vector<std::string> tree;
};

/// One run of a case with what was expected of it and what came.
struct RunReport {
    const CaseSection* heading; ///< the run's section, in the case's file
    Outcome expected;
    Outcome actual;
    std::vector<std::string> treeBefore;

    bool Passed() const;
};

/// Runs a case from its start tree to its last run, each in a process of its own that sees the
/// sandbox's `etc` as /etc.
///
/// Throws   CaseError for a case that says what cannot be; std::system_error
std::vector<RunReport> RunCase(const CaseFile& file);

} // namespace KTEST
