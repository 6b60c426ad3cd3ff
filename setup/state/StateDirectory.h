// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KSETUP {

/// State, manifest and backup of each product, in a directory by its service's name.
inline constexpr const char* stateBaseDirectory = "/var/lib/ins++";

/// The directories that an install writes to whatever its rules do: the log's and the state's.
std::vector<std::string> WrittenByEachInstall();

/// Takes the directory of a service's product away, and the base, where nothing is in it.
void RemoveEmptyStateDirectory(
    const std::string& serviceName, const std::string& base = stateBaseDirectory
);

} // namespace KSETUP
