// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace KTEST {

/// A line with marks in place of what differs from machine to machine and from run to run: the architecture, the
/// version, how long a run took, times.
std::string WithMarks(std::string line);

} // namespace KTEST
