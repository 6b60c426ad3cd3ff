// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace KSETUP {

/// Names of macros and their values.
using KMacroList = std::vector<std::pair<std::string, std::string>>;

/// One line a macro, `$name$  value`, the values below each other.
std::string MacrosToText(const KMacroList& macros);
/// One object in one line, with "schema": 1.
std::string MacrosToJson(const KMacroList& macros);

} // namespace KSETUP
