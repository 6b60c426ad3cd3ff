// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KSetupArguments.h>
#include <setup/preflight/KitSigner.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <bundle/KWorkPlace.h>
#include <sys/files/KDescriptor.h>

namespace KSETUP {

/// A bundle that is unpacked without being run: the program in front is not, nor
/// anything that is in it. Its kit is in a directory of its own, which nobody else can enter, and goes with
/// the object.
///
/// Thread   one at a time
class KUnpackedBundle {
  public:
    /// Not /tmp, which often runs no programs and is in memory.
    static constexpr const char* usualParent = "/var/tmp";

    /// Where the arguments have bundles unpacked.
    static std::string ParentFor(const KSetupArguments& arguments);

    enum class Signature {
        Required, ///< before anything is unpacked, where a key is known for what it claims to be
        Ignored,  ///< here; it is looked at by whoever looks at the kit
    };

    /// `shallStop` is asked before each 1 MiB; `parent` is where the directory is made.
    ///
    /// Throws   KSetupFailure: ExitCode::noKit where it is no bundle or cannot be read,
    ///          ExitCode::malformedScript for one that is damaged or not signed as it has to be,
    ///          ExitCode::cannotWrite where there is no room, which is looked at before; KSetupStop.
    ///          Nothing is left then.
    KUnpackedBundle(
        const std::string& file,
        Signature signature,
        const std::function<bool()>& shallStop = {},
        const std::string& parent = usualParent
    );

    /// A private directory there, for what is unpacked. What killed runs left there is deleted first.
    ///
    /// Throws   KSetupFailure (ExitCode::cannotWrite)
    static std::unique_ptr<KBUNDLE::KWorkPlace> MakeWorkPlace(const std::string& parent);

    const std::string& GetKitDirectory() const noexcept { return kit; }
    /// What is signed of it: exactly the bytes that were unpacked.
    const KSignedFile& GetSigned() const noexcept { return bundle; }

  private:
    void RequireRoom(const std::function<KBUNDLE::KBundleNeeds(std::uint64_t blockBytes)>& needs
    ) const;
    void CopyBundle(const std::function<bool()>& shallStop);
    void RequireSignature() const;
    void Unpack(const std::function<bool()>& shallStop);

    std::unique_ptr<KBUNDLE::KWorkPlace> directory;
    std::string kit;
    KSignedFile bundle;
    KSYS::KDescriptor content;     ///< what was verified
    std::uint64_t copiedBytes = 0; ///< of it
    KSYS::KDescriptor table;       ///< of what was unpacked (FindKeptTable)
};

} // namespace KSETUP
