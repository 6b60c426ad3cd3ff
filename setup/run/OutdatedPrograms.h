// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <functional>
#include <string>
#include <vector>

namespace KSETUP {

/// The programs that run, or have mapped, a file of the product that was replaced or deleted since
/// they began, in sentences that say what to do. Root sees those of all users. `isOurs` is asked about
/// files that are in use and gone; mostly there are none.
std::vector<KText>
DescribeOutdatedPrograms(const std::function<bool(const std::string& path)>& isOurs);

} // namespace KSETUP
