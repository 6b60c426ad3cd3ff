// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>
#include <setup/script/KScript.h>
#include <setup/text/KText.h>

#include <string>

namespace KSETUP {

/// Why the engine would not come to the first rule of a plan made from the script at this path: a
/// section that includes itself, which it would load without end, or else all lines that are no rules, each in a
/// line with its place. Empty when it would.
KText DescribeLoadProblems(const std::string& scriptPath, const KPlan& plan);

} // namespace KSETUP
