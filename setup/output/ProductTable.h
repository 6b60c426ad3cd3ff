// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KRunReport.h>
#include <setup/text/KText.h>

#include <cstddef>
#include <string>
#include <vector>

namespace KSETUP {

/// Products as a table with a line each, below a line of headings. Where that is wider than so many cells, each has
/// a line for each of its fields; 0 is any width.
std::string ToTable(const std::vector<KListedProduct>& products, std::size_t cells = 0);

/// In one or two words how it is with a product, as "interrupted".
KText StateOf(const KListedProduct& product);

} // namespace KSETUP
