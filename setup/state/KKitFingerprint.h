// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KFileDigest.h>
#include <setup/state/KKitLook.h>
#include <setup/state/StateDirectory.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace KSETUP {

/// What a kit consists of, in two SHA-256 sums: one by a look, which reads no file, and one by the
/// contents.
///
/// Threads  one at a time
class KKitFingerprint {
  public:
    explicit KKitFingerprint(std::shared_ptr<const KKitLook> itsKit);

    /// Of path, type, mode, size, time and link text of each entry, in hexadecimal.
    const std::string& GetLook() const noexcept { return look; }
    struct Known {
        std::uint64_t size;      ///< bytes
        std::string_view sha256; ///< in hexadecimal
    };
    /// By path. Borrows the texts.
    using KnownFiles = std::unordered_map<std::string_view, Known>;
    /// The same without times, and with what the files hold. Files whose digests are `known` are not
    /// read. `shallStop` is asked before each 1 MiB.
    ///
    /// Throws   KSetupFailure for a file that cannot be read, KSetupStop when `shallStop` said so
    std::string
    ReadContent(const KnownFiles& known = {}, const std::function<bool()>& shallStop = {}) const;

  private:
    std::shared_ptr<const KKitLook> kit;
    std::vector<const KKitLook::Entry*> sorted; // by path
    std::string look;
};

/// The kit that a product was installed from, as it is remembered: BASE/NAME/fingerprint, a JSON
/// object in one line.
struct KInstalledKit {
    std::string look;     ///< KKitFingerprint::GetLook
    std::string content;  ///< KKitFingerprint::ReadContent
    std::string manifest; ///< SHA-256 of the manifest that was written for it

    /// Throws   KSetupFailure, a former one being there still
    void Write(const std::string& serviceName, const std::string& base = stateBaseDirectory) const;
    /// Nothing when there is none, or one that cannot be understood: it is no more than a short cut.
    ///
    /// Throws   KSetupFailure when it cannot be read
    static std::optional<KInstalledKit>
    Read(const std::string& serviceName, const std::string& base = stateBaseDirectory);
    /// Throws   KSetupFailure, it being there still
    static void
    Remove(const std::string& serviceName, const std::string& base = stateBaseDirectory);
};

} // namespace KSETUP
