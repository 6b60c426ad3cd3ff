// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <sys/types.h>

/// What the system says about this process and itself.
namespace KSYS {

/// The directory of the running program, with its separator; "/" when the system does not say.
std::string ProgramDirectory();

/// The arguments that the process was started with; none when the system does not say. Those of a
/// dynamic loader that was started with the program's name are left out.
std::vector<std::string> ProgramArguments();
/// The command line of a program without that of the dynamic loader (ld.so(8)) in front of it, under
/// the name that the loader gave it.
std::vector<std::string> WithoutLoader(std::vector<std::string> words);

/// Whether the program was started by naming the dynamic loader, as bundles do with the one that they
/// bring: it has nothing of the machine's C library then.
bool IsStartedByLoader() noexcept;

/// The number by which this process is known on the machine: its own, or in a process namespace of its
/// own that of the process which waits for it outside.
pid_t KnownProcessId() noexcept;
/// For a process whose number means nothing outside; while it has one thread.
void SetKnownProcessId(pid_t id) noexcept;

/// The architecture's directory name: "x86_64", "x86", or the system's own name for any other.
std::string Architecture();

/// Memory whose addresses fit into 32 bits, for the life of the process; null when there is none.
void* AllocateLow(std::size_t bytes) noexcept;

} // namespace KSYS
