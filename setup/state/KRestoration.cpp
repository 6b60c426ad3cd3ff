// SPDX-License-Identifier: MIT
//
// What a restoration finds; how it changes it is in KRestorationSteps.cpp.
#include <setup/ExitCode.h>
#include <setup/KSetupStop.h>
#include <setup/files/PathText.h>
#include <setup/state/KRestoration.h>

namespace KSETUP {

namespace {

using Kind = KBackupEntry::Kind;

bool HasSameRights(const KBackupEntry& one, const KBackupEntry& other) noexcept {
    return one.mode == other.mode && one.owner == other.owner && one.group == other.group;
}

bool HasSameTime(const KBackupEntry& one, const KBackupEntry& other) noexcept {
    return one.changed.tv_sec == other.changed.tv_sec &&
           one.changed.tv_nsec == other.changed.tv_nsec;
}

/// Reads a file that has not been read yet.
void Digest(const std::string& path, KBackupEntry& entry) {
    if (entry.kind == Kind::File && entry.digest.empty()) {
        entry.digest = DigestForBackup(path);
    }
}

} // namespace

KRestoration::KRestoration(
    const KOpenBackup& toPutBack, const KBackup& store, const std::function<bool()>& shallStop
)
    : backup(toPutBack),
      base(store.GetBase()),
      ownDirectory(store.GetBase() + "/" + store.GetName()) {
    for (const auto& [path, entry] : backup.index.entries) {
        if (shallStop && shallStop()) {
            throw KSetupStop(Text("stopped on request. Nothing was changed."));
        }
        const State state = Inspect(path, entry);
        states[path] = state;
        if (state == State::AsBefore || state == State::Foreign) {
            continue;
        }
        RequireKept(path, entry);
        if (!IsOwn(path)) {
            hasWork = true;
            if (state == State::Edited) {
                edited.push_back(path);
            }
        }
    }
}

bool KRestoration::IsOwn(const std::string& path) const {
    return IsAtOrBelow(path, ownDirectory);
}

void KRestoration::RequireKept(const std::string& path, const KBackupEntry& entry) const {
    if (entry.kind != Kind::File) {
        return;
    }
    const KFileDigest digest = DigestFile({backup.directory.Get(), entry.stored.c_str()});
    if (digest.errorNumber != 0 || digest.sha256 != entry.digest) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text(
                "the backup is damaged: %s/%s%s of %s. Nothing was changed.",
                backup.directory.GetPath(),
                entry.stored,
                (digest.errorNumber != 0 ? Text(" cannot be read") : Text(" is not what was kept")),
                path
            )
        );
    }
}

KRestoration::State
KRestoration::Inspect(const std::string& path, const KBackupEntry& before) const {
    std::optional<KBackupEntry> now;
    if (LookForBackup(path, now) != 0) {
        return State::Differs; // putting it back tells why not
    }
    if (now &&
        (now->kind == Kind::Directory ? HasSameRights(*now, before) && before.kind == now->kind
                                      : now->IsUntouched(before))) {
        return State::AsBefore;
    }
    if (IsOwn(path) || (now && now->kind == Kind::Nothing)) {
        return State::Differs;
    }
    if (!now) { // a device, a queue or a socket: no run made it
        return before.kind == Kind::Nothing ? State::Foreign : State::Edited;
    }
    if (now->kind == Kind::Directory) {
        return InspectDirectory(path, *now, before);
    }
    return before.kind == Kind::Nothing ? InspectMade(path, *now)
                                        : InspectReplaced(path, *now, before);
}

/// Directories are never kept beside: what is in one stays in it.
KRestoration::State KRestoration::InspectDirectory(
    const std::string& path, const KBackupEntry& now, const KBackupEntry& before
) const {
    if (!backup.left) {
        return State::Differs;
    }
    const auto left = backup.left->find(path);
    const bool isOfRun = left != backup.left->end() && left->second.kind == Kind::Directory;
    if (before.kind == Kind::Directory) { // its rights are others by now
        return isOfRun && HasSameRights(now, left->second) ? State::Differs : State::Foreign;
    }
    return isOfRun || before.kind != Kind::Nothing ? State::Differs : State::Foreign;
}

/// Where nothing was before the run. What it did not make either is none of its affair.
KRestoration::State KRestoration::InspectMade(const std::string& path, KBackupEntry now) const {
    if (!backup.left) {
        return State::Differs;
    }
    const auto left = backup.left->find(path);
    if (left == backup.left->end() || left->second.kind == Kind::Nothing) {
        return State::Foreign;
    }
    return IsAsLeft(path, now) ? State::Differs : State::Edited;
}

KRestoration::State KRestoration::InspectReplaced(
    const std::string& path, KBackupEntry now, const KBackupEntry& before
) const {
    if (now.kind == Kind::Link && now.HasContentOf(before) && HasSameRights(now, before)) {
        return State::AsBefore; // laid anew
    }
    if (!backup.left || IsAsLeft(path, now)) {
        return State::Differs;
    }
    Digest(path, now);
    if (!now.HasContentOf(before)) {
        return State::Edited;
    }
    return HasSameRights(now, before) && HasSameTime(now, before) ? State::AsBefore
                                                                  : State::Differs;
}

/// Reads the file only where somebody touched it.
bool KRestoration::IsAsLeft(const std::string& path, KBackupEntry& now) const {
    const auto left = backup.left->find(path);
    if (left == backup.left->end()) {
        return false;
    }
    if (now.IsUntouched(left->second)) {
        return true;
    }
    if (now.kind != left->second.kind || now.size != left->second.size) {
        return false;
    }
    Digest(path, now);
    return now.HasContentOf(left->second);
}

} // namespace KSETUP
