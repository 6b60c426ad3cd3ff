// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace KSETUP {

/// Deletes what a killed run had begun to write: a file is written beside the one that it replaces,
/// under a name of its own (".inspp-" and digits), and gets its name in the end. Only names with the
/// `key` of that run go, and none for 0, so what others write in the same directories stays. Missing
/// directories, links and what is not root's are passed over.
void DeleteStaleTemporaries(const std::set<std::string>& directories, std::uint32_t key);

} // namespace KSETUP
