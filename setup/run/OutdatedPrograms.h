// SPDX-License-Identifier: MIT
#pragma once

#include <setup/state/KManifest.h>
#include <setup/text/KText.h>

#include <string>
#include <vector>

namespace KSETUP {

/// The programs that run, or have mapped, a file of the product that was replaced or deleted since
/// they began, in sentences that say what to do. Root sees those of all users.
std::vector<KText> DescribeOutdatedPrograms(const KManifest& manifest);

} // namespace KSETUP
