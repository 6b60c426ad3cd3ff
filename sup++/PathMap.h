// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KString.h>

#include <string>
#include <string_view>
#include <vector>

/// The process-wide table of directories, for this library's own sources; others go through KUtil.
///
/// Thread   any; locks itself
namespace KSUP::PathMap {

KString Get(unsigned id);
void Set(unsigned id, const KString& path);

/// Appends the entry whose macro has this name. False when there is no such name or the entry is
/// not set: the macro is then unknown.
bool AppendByMacro(std::string_view name, std::string& target);
/// Appends the names of all macros that stand for an entry.
void AppendNames(std::vector<KString>& names);

} // namespace KSUP::PathMap
