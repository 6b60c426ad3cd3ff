// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KSETUP {

/// Deletes what a killed run had begun to write: the engine writes beside a file, under a name of its
/// own (".inspp-" and digits), and gives it the file's name in the end. For directories in which
/// nobody else's run is at work. Missing directories, links and what is not root's are passed over.
void DeleteStaleTemporaries(const std::vector<std::string>& directories);

} // namespace KSETUP
