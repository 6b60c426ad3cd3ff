// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallRuleManagerBase.h>

#include <string>

namespace KSETUP {

/// The users of one product, gathered while its script loads: all rules of a run write the same
/// file, and systemd-sysusers(8) makes of it what is missing.
///
/// Thread   loaded by one thread, then used by the run's
class KUsersFile {
  public:
    explicit KUsersFile(const std::string& filePath) : path(filePath) {}

    const std::string& GetPath() const noexcept { return path; }
    /// A line of the file, with its end.
    void Add(const std::string& line);
    /// Writes the file, where it does not say just that, and has the users made.
    ///
    /// Throws   KSUP::KError for a file that others wrote, one that cannot be written, and where
    ///          systemd-sysusers fails
    void Apply(const KINS::KInstallRuleManagerBase& manager) const;

  private:
    std::string path;
    std::string lines;
};

} // namespace KSETUP
