// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

/// The process-wide records, for this library's own sources; others go through SvcData.h.
namespace KSUP::DataRecords {

/// Lifetime `commandLine` must live as long as the process
void SetCommandLine(const char* commandLine);

/// Saves the command line that the process was started with, unless one was saved before.
void SaveOwnCommandLine() noexcept;

/// Appends the value of a macro of the product data or of a custom key; false for an unknown name.
bool AppendByMacro(std::string_view name, std::string& target);

} // namespace KSUP::DataRecords
