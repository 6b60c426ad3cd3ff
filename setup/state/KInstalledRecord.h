// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/text/KText.h>

#include <optional>
#include <string>
#include <string_view>

namespace KSETUP {

/// The record of the installed product, as it is believed. Its version stands in a configuration
/// file that others may be meant to edit, and it is found by a link in /etc: where they say otherwise
/// than what ins-setup wrote down for itself, that counts.
struct KInstalledRecord {
    std::string path;
    std::string version; ///< KINS::Names::noRecordedVersion where it is not known
    unsigned buildNumber = 0;
    /// What is wrong with the version in the file, which does not count: a sentence; empty if nothing.
    KText damage;
    /// Why its link may be another's, so that no run may follow it; empty if it is root's.
    KText distrust;
    KText advice; ///< what to do about that

    bool IsSound() const noexcept { return damage.empty() && distrust.empty(); }
    /// What is to be told of it; empty if it is sound.
    KText ToWords() const;
};

/// The product that is loaded; nothing when it is not installed.
///
/// Throws   KSUP::KError for a record that cannot be read; KSetupFailure for one that is too large to be
///          one
std::optional<KInstalledRecord> LoadRecord(const KINS::KInstaller& installer);

/// The configuration file of a product, which holds the record, and is there to be edited.
std::string RecordFile(const KINS::KInstaller& installer, const KInstalledRecord& record);

/// The value of the macro for it (KINS::Names::installedVersionMacro); empty where no product is
/// installed.
std::string InstalledVersionText(const std::optional<KInstalledRecord>& record);

/// Whether a text can be a version where nothing else tells: ASCII letters, digits and . + ~ : _ -, a
/// letter or digit first, 100 at most. So it means nothing to a shell, a terminal or a path.
bool LooksLikeVersion(std::string_view text) noexcept;

/// Throws   KSetupFailure with ExitCode::malformedScript for a record whose link may be another's
void RequireTrusted(const std::optional<KInstalledRecord>& record);

} // namespace KSETUP
