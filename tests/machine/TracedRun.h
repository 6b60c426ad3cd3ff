// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/ptrace.h>
#include <sys/types.h>

namespace KTEST {

/// Asked before each system call of a program, by the thread that is about to make it: true kills the
/// program there, with all its threads, and the call is not made.
using CallWatcher = std::function<bool(pid_t thread, const __ptrace_syscall_info& call)>;

/// Runs a program to its end, or to where it is killed, with nothing to read and nobody to read it.
///
/// Returns  its status as waitpid(2) has it
int RunTraced(const std::vector<std::string>& words, const CallWatcher& shallKill);

/// A text in the memory of a traced thread, such as a path that it is about to use.
std::string ReadTracedText(pid_t thread, unsigned long long address);

} // namespace KTEST
