// SPDX-License-Identifier: MIT
#pragma once

#include "KDisk.h"
#include "KMachineState.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace KSWEEP {

/// How the places that products change are spread over disks.
enum class KLayout {
    Together, ///< all on one
    Apart     ///< /opt on one of its own
};

/// What all disks hold at a moment.
using KDisksContent = std::vector<KDiskContent>;

/// The machine with the places that products change on disks of their own, bound to where they belong
/// for this process and its children.
class KDiskMachine {
  public:
    /// Throws   std::exception when there are no disks
    KDiskMachine(const KMachineState& machine, KLayout layout);
    ~KDiskMachine();
    KDiskMachine(const KDiskMachine&) = delete;
    KDiskMachine& operator=(const KDiskMachine&) = delete;

    /// What the disks hold when the machine stands in a state.
    ///
    /// Throws   std::exception
    KDisksContent ContentOf(const KFileSystem& fileSystem, const std::string& state);

    /// Gives the disks what they are to hold, and mounts them.
    ///
    /// Throws   std::exception
    void Start(const KFileSystem& fileSystem, const KDisksContent& content);
    /// Throws   std::exception
    void Stop();
    /// What they hold now, which shares what is as in `former`.
    KDisksContent Read(const KDisksContent& former) const;

    std::string CountWrites() const;

    std::vector<std::unique_ptr<KDisk>>& GetDisks() noexcept { return disks; }

    /// What decides how a run goes on: kinds, modes, owners and bytes of all that stands at the places,
    /// without times and the names of runs. In few bytes.
    std::string Look() const;

  private:
    std::string RootOf(const std::string& place) const;
    const KDisksContent& EmptyOf(const KFileSystem& fileSystem);
    void FillEmpty() const;
    void Bind();

    const KMachineState& machine;
    KLayout layout;
    std::vector<std::unique_ptr<KDisk>> disks;
    std::vector<std::string> bound;
    std::map<std::string, KDisksContent>
        empty; ///< by file system: with the machine's own files only
};

} // namespace KSWEEP
