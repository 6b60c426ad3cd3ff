// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>
#include <setup/text/KText.h>

#include <string>

namespace KSETUP {

/// What a rule does, for one that says nothing of itself while it runs: a link, an option, a deletion
/// of nothing. Values that may be secret are not in it.
KText DescribeRule(const KPlannedRule& rule);

} // namespace KSETUP
