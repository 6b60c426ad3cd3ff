// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace KSETUP {

/// \file
/// Absolute paths by their letters alone. A plan looks at tens of thousands, so nothing is taken
/// apart that need not be.

/// Whether NormalPath surely has nothing to do: no component is empty or begins with a dot.
bool IsNormalPath(std::string_view path) noexcept;

/// Without separators at the end or twice in a row, "." and "..".
std::string NormalPath(const std::string& path);

/// The directory of a normal path; "/" of "/" itself.
std::string_view DirectoryOfPath(std::string_view path) noexcept;
/// The same as a text of its own.
std::string ParentPath(std::string_view path);

/// What stands behind the last separator.
std::string_view NameOfPath(std::string_view path) noexcept;

/// The path of a name in a directory, as rules put the two together.
std::string JoinPath(std::string_view directory, std::string_view name);

/// Whether "..", a step up, is a component of a path.
bool HasParentStep(std::string_view path) noexcept;

/// Of two normal paths.
bool IsAtOrBelow(std::string_view path, std::string_view directory) noexcept;

} // namespace KSETUP
