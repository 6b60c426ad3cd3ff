// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KMinisign.h>
#include <setup/state/StateDirectory.h>

#include <optional>
#include <string>

namespace KSETUP {

/// The key that a product's next kits have to be signed with, since a signed one was installed: the
/// file BASE/NAME/key. It stays when the product is removed, and goes with a purge.
///
/// Threads  one at a time
struct KPinnedKey {
    inline static constexpr const char* fileName = "key";

    KPublicKey key;
    /// SHA-256 of the seal of the kit that was installed with it. That kit may bring a new key, and
    /// is then itself signed by the former one.
    std::string seal;
    /// The key that signed that kit, where it is not `key`.
    std::optional<KPublicKey> formerKey;

    /// Throws   KSetupFailure for a file that cannot be understood, with ExitCode::malformedScript,
    ///          and with ExitCode::notRoot for a user who may not look
    static std::optional<KPinnedKey>
    Read(const std::string& serviceName, const std::string& base = stateBaseDirectory);
    /// Throws   KSetupFailure, a former one being there still
    void Write(const std::string& serviceName, const std::string& base = stateBaseDirectory) const;
    /// Returns  whether there was one
    /// Throws   KSetupFailure, it being there still
    static bool
    Remove(const std::string& serviceName, const std::string& base = stateBaseDirectory);

    /// Where it is.
    static std::string
    PathOf(const std::string& serviceName, const std::string& base = stateBaseDirectory) {
        return base + "/" + serviceName + "/" + fileName;
    }
};

} // namespace KSETUP
