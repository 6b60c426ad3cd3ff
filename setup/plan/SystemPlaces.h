// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace KSETUP {

/// Whether a directory, by its normal path, holds what many own: it is listed, or somewhere in /etc
/// and not in the directory of the service there. A directory of one's own below others is fine.
bool IsSystemDirectory(const std::string& path, const std::string& service);

/// Whether this is the name of a directory in /etc that many share, so that no service can be called
/// that: its record lies in /etc/NAME.
bool IsSharedNameInEtc(const std::string& name);

/// What manages the package that owns the path, "dpkg" or "rpm"; empty for a path of no package, and
/// where neither can be asked. Takes some hundredths of a second.
std::string FindPackageManagerOf(const std::string& path);

} // namespace KSETUP
