// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KMinisign.h>
#include <setup/state/KPinnedKey.h>
#include <setup/text/KText.h>

#include <optional>
#include <string>
#include <vector>

namespace KSETUP {

/// Where the administrator lays public keys, NAME.pub: those for all products in trusted.d itself,
/// those for one in a directory of its service's name there.
inline constexpr const char* trustDirectory = "/etc/ins++";

/// A public key, and the file that it is known from.
struct KKnownKey {
    KPublicKey key;
    std::string file;
};

/// The keys of which one has to have signed a product's kits; none where anybody's kit may be
/// installed. They are the first of these that there are: the administrator's for the product, the
/// administrator's for all products, the one that was pinned by an install.
///
/// Threads  one at a time
struct KKnownKeys {
    std::vector<KKnownKey> keys;
    std::optional<KPinnedKey> pinned; ///< also where the administrator's keys count
    bool areAdministrators = false;

    /// Throws   KSetupFailure where a directory or file of keys is not root's alone or no key, with
    ///          ExitCode::malformedScript, and with ExitCode::notRoot for a user who may not look
    static KKnownKeys Find(
        const std::string& serviceName,
        const std::string& trust = trustDirectory,
        const std::string& state = stateBaseDirectory
    );
    /// The same where the product is not known yet: the administrator's keys for all.
    static std::vector<KKnownKey> FindForAll(const std::string& trust = trustDirectory);

    bool AreThereAny() const noexcept { return !keys.empty(); }
    /// As "key 0123456789ABCDEF (/etc/ins++/trusted.d/us.pub)"; several with commas between.
    KText ToWords() const;
};

} // namespace KSETUP
