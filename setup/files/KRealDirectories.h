// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>

namespace KSETUP {

/// Where directories are once the links in their paths are followed. Thousands of paths have few
/// directories: each is looked at once, from the one above it.
///
/// Thread   one at a time
class KRealDirectories {
  public:
    /// Of a normal path, as far as it is there; what cannot be looked at is what it is called. Valid as
    /// long as this.
    const std::string& Find(const std::string& directory);

  private:
    std::map<std::string, std::string> known; // with links -> without
};

} // namespace KSETUP
