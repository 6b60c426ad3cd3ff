// SPDX-License-Identifier: MIT
#pragma once

#include <set>
#include <string>
#include <vector>

namespace KSYS {

/// One of the changes that systemd answers with when it enables or disables a unit: its own word for
/// what was done, such as "symlink" and "unlink", and the link's path.
struct UnitFileChange {
    std::string type;
    std::string path;
};

/// Reports what systemd did to the disk for us (ReportWrite). It tells of links only, so the
/// directories for them, which it makes and removes too, are looked at before and after.
///
///     const UnitFileReport report;
///     report.Report(unit.EnableFile());
class UnitFileReport {
  public:
    /// Sees which directories there are in `directoryOfUnits`, if anybody listens.
    explicit UnitFileReport(const std::string& directoryOfUnits = "/etc/systemd/system");

    /// A directory stands before the first link in it, and behind the last that was deleted.
    void Report(const std::vector<UnitFileChange>& changes) const;

  private:
    std::set<std::string> directories;
};

} // namespace KSYS
