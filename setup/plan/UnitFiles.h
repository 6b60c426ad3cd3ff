// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KSETUP {

/// The unit file that a service rule makes, and the link that enables it.
std::vector<std::string> UnitPaths(const std::string& service);

/// What of a service is in /etc/systemd/system now: its unit file first, if it is there, then the
/// links that enable it or are other names of it.
///
/// Throws   KSetupFailure when that cannot be told
std::vector<std::string> FindUnitEntries(const std::string& service);

} // namespace KSETUP
