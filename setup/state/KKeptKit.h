// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KFileDigest.h>
#include <setup/state/StateDirectory.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace KSETUP {

/// What a removal needs of the kit, kept on the machine, so that a product whose kit is gone can
/// still be removed: the directory BASE/NAME/kit, a kit of its own, with product.ini, install.ini
/// and the files that the removal uses, at their places and with their modes.
///
/// Threads  one at a time
class KKeptKit {
  public:
    /// Keeps `files`, by their paths in the kit, with product.ini and install.ini. What a crash
    /// leaves is the former kept kit or the new one; it is on the disk when this returns. Of a sealed
    /// kit, whose digests are `sealed` by their paths, it keeps what was sealed. `further` are texts
    /// by the names of files, for root's eyes, that are kept with it.
    ///
    /// Throws   KSetupFailure, the former kept kit being there still
    static void Write(
        const std::string& serviceName,
        const std::string& kitDirectory,
        const std::set<std::string>& files,
        const KDigests& sealed = {},
        const std::map<std::string, std::string>& further = {},
        const std::string& base = stateBaseDirectory
    );
    /// Its directory; nothing when no kit is kept.
    ///
    /// Throws   KSetupFailure with ExitCode::notRoot for a user who may not look
    static std::optional<std::string>
    FindDirectory(const std::string& serviceName, const std::string& base = stateBaseDirectory);
    /// The bytes of a file at its top; nothing when there is none, or no kit is kept.
    ///
    /// Throws   KSetupFailure as above, and when it cannot be read
    static std::optional<std::string> ReadFile(
        const std::string& serviceName,
        const std::string& file,
        const std::string& base = stateBaseDirectory
    );
    /// The path of its directory, whether it is there or not, and of all that is in it; what is in a
    /// directory stands behind it.
    ///
    /// Throws   KSetupFailure where that cannot be read, which says nothing of what there is
    static std::vector<std::string>
    ListPaths(const std::string& serviceName, const std::string& base = stateBaseDirectory);
    /// Takes it away, where nothing else is remembered of the product that would need it.
    ///
    /// Throws   KSetupFailure, a part of it being there still
    static void RemoveUnlessNeeded(
        const std::string& serviceName, const std::string& base = stateBaseDirectory
    );
};

} // namespace KSETUP
