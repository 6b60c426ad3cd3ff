// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KFileDigest.h>
#include <setup/state/StateDirectory.h>

#include <cstdint>
#include <functional>
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
    /// Looks at every entry of the kit.
    ///
    /// Throws   KSetupFailure for what cannot be looked at
    explicit KKitFingerprint(const std::string& kitDirectory);

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
    struct Entry {
        std::size_t text =
            0; // where in `texts` its path in the kit begins; its target stands behind
        unsigned mode = 0;
        std::uint64_t size = 0;
        std::int64_t seconds = 0;
        std::int64_t nanoseconds = 0;
    };
    void Add(const std::string& below);
    const char* PathOf(const Entry& entry) const noexcept { return texts.data() + entry.text; }
    const char* TargetOf(const Entry& entry) const noexcept;

    std::string directory;
    std::string texts;          // of all entries, each with a null byte at its end: no path has one
    std::vector<Entry> entries; // sorted by path
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
