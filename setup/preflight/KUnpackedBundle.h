// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KitFiles.h>
#include <setup/preflight/KitSigner.h>

#include <functional>
#include <string>

namespace KSETUP {

/// A bundle that is unpacked without being run: no line of its script is, and of what is in it
/// neither. Its kit is in a directory of its own below /var/tmp, which nobody else can enter, and
/// goes with the object.
///
/// Thread   one at a time
class KUnpackedBundle {
  public:
    enum class Signature {
        Required, ///< before anything is unpacked, where a key is known for what it claims to be
        Ignored,  ///< here; it is looked at by whoever looks at the kit
    };

    /// `shallStop` is asked before each 1 MiB.
    ///
    /// Throws   KSetupFailure: ExitCode::noKit where it is no bundle or cannot be read,
    ///          ExitCode::malformedScript for one that is damaged or not signed as it has to be,
    ///          ExitCode::cannotWrite where there is no room; KSetupStop. Nothing is left then.
    KUnpackedBundle(
        const std::string& file, Signature signature, const std::function<bool()>& shallStop = {}
    );

    const std::string& GetKitDirectory() const noexcept { return kit; }
    /// What is signed of it: exactly the bytes that were unpacked.
    const KSignedFile& GetSigned() const noexcept { return bundle; }

  private:
    void CopyPayload(const std::function<bool()>& shallStop);
    void RequireSignature() const;
    void Unpack();

    KTemporaryDirectory directory;
    std::string kit;
    KSignedFile bundle;
};

} // namespace KSETUP
