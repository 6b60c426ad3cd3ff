// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/files/KFileDigest.h>
#include <setup/files/PathText.h>
#include <setup/state/KPrivateDirectory.h>
#include <setup/state/ManifestLook.h>

#include <algorithm>
#include <cerrno>
#include <optional>

namespace KSETUP {

namespace {

bool HasSameContent(const std::string& path, const KManifestEntry& was, const KManifestEntry& now) {
    if (now.size != was.size) {
        return false;
    }
    if (was.modified != 0 && now.modified == was.modified) {
        return true;
    }
    const KFileDigest digest = DigestFile(path);
    return digest.errorNumber == 0 && digest.sha256 == was.digest;
}

bool IsSame(
    KEntryLook& look, const std::string& path, const KManifestEntry& was, bool contentMayChange
) {
    unsigned whyMissing = 0;
    const std::optional<KManifestEntry> now = look.At(path, whyMissing);
    if (whyMissing != 0 && whyMissing != ENOENT && whyMissing != ENOTDIR) {
        throw SystemFailure(
            ExitCode::cannotWrite,
            Text("cannot look at %s", path),
            whyMissing,
            Text("Fix the cause and try again.")
        );
    }
    const bool isOwnerKnown = was.modified != 0 || was.owner != 0 || was.group != 0;
    return now && now->kind == was.kind && now->mode == was.mode && now->target == was.target &&
           (!isOwnerKnown || (now->owner == was.owner && now->group == was.group)) &&
           (was.kind != KManifestEntry::Kind::File || contentMayChange || was.isConfiguration ||
            HasSameContent(path, was, *now));
}

} // namespace

bool LooksAsInstalled(const KManifest& manifest, const std::set<std::string>& mayChange) {
    std::set<std::string> edited;
    for (const std::string& path : mayChange) {
        edited.insert(NormalPath(path));
    }
    KEntryLook look;
    const auto& entries = manifest.GetEntries();
    return std::all_of(entries.begin(), entries.end(), [&](const auto& one) {
        return IsSame(look, one.first, one.second, edited.contains(one.first));
    });
}

} // namespace KSETUP
