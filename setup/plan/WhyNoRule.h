// SPDX-License-Identifier: MIT
#pragma once

#include <setup/script/KScript.h>

#include <string>

namespace KSETUP {

/// Why the engine would refuse to load this line, which ends a run before its first rule; empty for
/// one that it takes.
std::string WhyNoRule(const KScriptRule& rule);

} // namespace KSETUP
