// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KString.h>

#include <string>
#include <string_view>
#include <vector>

/// The process-wide records, for this library's own sources; others go through SvcData.h.
namespace KSUP::DataRecords {

/// Puts a command line (CommandLineText.h) into the global record. Former ones stay readable.
void SetCommandLine(std::string commandLine);

/// Appends the value of a macro of the product data or of a custom key; false for an unknown name.
bool AppendByMacro(std::string_view name, std::string& target);
/// Appends the names of the product data's macros.
void AppendNames(std::vector<KString>& names);

} // namespace KSUP::DataRecords
