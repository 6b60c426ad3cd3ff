// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KSYS {

/// Runs a program of the search path to its end, without input. `words` are its name and arguments,
/// `directory` is its working directory, and what it writes goes to a file of the name `output` there.
///
/// Returns  0 or errno, ENOENT when there is no such program; `succeeded` tells whether it ended with 0
/// Throws   std::bad_alloc
[[nodiscard]] unsigned RunProgram(
    std::vector<std::string> words,
    const std::string& directory,
    const char* output,
    bool& succeeded
);

/// The same with this process's own input, output and working directory: for a program that asks
/// who sits there.
[[nodiscard]] unsigned RunProgramHere(std::vector<std::string> words, bool& succeeded);

/// Runs a program of the search path to its end, without input, and takes what it writes to its
/// output, whatever it ends with. What it complains about goes nowhere.
///
/// Returns  0 or errno, ENOENT when there is no such program
/// Throws   std::bad_alloc
[[nodiscard]] unsigned ReadProgram(std::vector<std::string> words, std::string& output);

} // namespace KSYS
