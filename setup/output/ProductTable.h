// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KRunReport.h>
#include <setup/text/KText.h>

#include <string>
#include <vector>

namespace KSETUP {

/// Products as a table with a line each, below a line of headings.
std::string ToTable(const std::vector<KListedProduct>& products);

/// In one or two words how it is with a product, as "interrupted".
KText StateOf(const KListedProduct& product);

} // namespace KSETUP
