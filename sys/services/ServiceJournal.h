// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace KSYS {

/// The last messages of the journal that a service wrote, or systemd about it, from a time on; the
/// oldest first. Empty also where there is no journal, or it cannot be read.
std::vector<std::string> ReadServiceJournal(
    const std::string& service, std::chrono::system_clock::time_point since, std::size_t most
);

} // namespace KSYS
