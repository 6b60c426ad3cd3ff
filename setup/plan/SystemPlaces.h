// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KRealDirectories.h>

#include <map>
#include <string>
#include <vector>

namespace KSETUP {

/// Whether a directory, by its normal path, holds what many own: it is listed, or somewhere in /etc
/// and not in the directory of the service there. A directory of one's own below others is fine.
bool IsSystemDirectory(const std::string& path, const std::string& service);

/// The same of an absolute path as it is written, and of where it leads to: neither a link nor ".."
/// gets around the list.
bool LeadsToSystemDirectory(
    const std::string& path, const std::string& service, KRealDirectories& directories
);

/// Whether this is the name of a directory in /etc that many share, so that no service can be called
/// that: its record lies in /etc/NAME.
bool IsSharedNameInEtc(const std::string& name);

/// What manages the packages that own paths, "dpkg" or "rpm", by path; without those of no package,
/// and empty where neither can be asked. Takes some tenths of a second, however many they are.
std::map<std::string, std::string> FindPackageManagers(const std::vector<std::string>& paths);

} // namespace KSETUP
