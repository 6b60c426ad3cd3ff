// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KRealDirectories.h>
#include <setup/state/KManifest.h>
#include <setup/state/KWriteJournal.h>
#include <setup/state/StateDirectory.h>
#include <setup/text/KText.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace KSETUP {

/// What on the machine is a product's, by its manifest and by what a run that was interrupted had
/// made; and what is another product's, by theirs. What links lead to counts as where it is.
///
/// Threads  one at a time; the asking members cache
class KOwnership {
  public:
    enum class Known : std::uint8_t {
        Manifest, ///< what the product owns is written down; nothing, for a first install
        Nothing,  ///< it is installed, and no manifest (or a damaged one) tells of what it consists
        Denied,   ///< the user may not look
    };

    /// Of nothing: a machine on which no product was ever installed.
    KOwnership() = default;
    /// Reads what is remembered of the service's product. `isInstalled` says that it has a record.
    ///
    /// Throws   KSetupFailure when that cannot be read; what is damaged is told by GetDamage
    KOwnership(
        const std::string& serviceName,
        bool isInstalled,
        const std::string& base = stateBaseDirectory
    );

    Known GetKnown() const noexcept { return known; }
    /// Why the manifest could not be understood; empty when it was, or there is none.
    const KText& GetDamage() const noexcept { return damage; }
    /// What was installed; empty without a manifest.
    const KManifest& GetManifest() const noexcept { return manifest; }

    /// Whether a path is the product's. All are where nothing is known.
    bool Owns(const std::string& path) const;
    /// What the manifest tells of it; null for nothing.
    const KManifestEntry* Find(const std::string& path) const;
    /// Whether a run that was interrupted made it, so that what stands there may be half of it.
    bool WasBegun(const std::string& path) const;
    /// Whether a run that was interrupted was to write it anew, and nobody had edited it before.
    bool WasRewritten(const std::string& path) const;
    /// Whether it had been edited before a run that was interrupted.
    bool WasEdited(const std::string& path) const;
    /// The name of another product whose file or link it is; empty for none. The first call reads
    /// the manifests of all products.
    std::string FindOther(const std::string& path) const;
    /// The same entry by a path without links in its directory.
    std::string RealPath(const std::string& path) const;
    /// Whether the rules that run made it.
    bool WasMadeNow(const std::string& path) const;
    /// Whether it is there only since the run began, whoever made it: a command of the script, as far
    /// as the file system tells.
    bool WasBornNow(const std::string& path) const;
    /// The run begins now.
    void NoteBegin() noexcept;
    /// How to know what the rules made.
    void SetMadeNow(std::function<bool(const std::string&)> isMade) { madeNow = std::move(isMade); }

  private:
    const KManifestEntry* FindReal(const std::string& normal) const;
    void LoadOthers() const;

    Known known = Known::Manifest;
    std::string service;
    std::string base;
    KText damage;
    KManifest manifest;
    KWriteJournal::Begun begun;
    std::function<bool(const std::string&)> madeNow;
    std::uint64_t runBegan = 0; // in nanoseconds since 1970
    mutable KRealDirectories directories;
    mutable std::optional<std::map<std::string, const KManifestEntry*>> real;
    mutable std::optional<std::map<std::string, std::string>> others; // path -> name
};

} // namespace KSETUP
