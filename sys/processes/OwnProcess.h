// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// What the system says about this process and itself.
namespace KSYS {

/// The directory of the running program, with its separator; "/" when the system does not say.
std::string ProgramDirectory();

/// The arguments that the process was started with; none when the system does not say.
std::vector<std::string> ProgramArguments();

/// The architecture's directory name: "x86_64", "x86", or the system's own name for any other.
std::string Architecture();

/// Memory whose addresses fit into 32 bits, for the life of the process; null when there is none.
void* AllocateLow(std::size_t bytes) noexcept;

} // namespace KSYS
