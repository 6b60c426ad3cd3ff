// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/state/KOwnership.h>
#include <setup/state/KPrivateDirectory.h>

#include <cerrno>
#include <vector>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileStatus.h>
#include <sys/processes/ProcessIsolation.h>

namespace KSETUP {

namespace {

/// The services of which something is remembered; nothing for a user who may not look.
std::vector<std::string> KnownServices(const std::string& base) {
    std::vector<std::string> names;
    const unsigned failed = KSYS::ListEntries(base, names);
    if (failed != 0 && failed != ENOENT && (failed != EACCES || KSYS::IsRoot())) {
        throw SystemFailure(
            ExitCode::cannotWrite,
            Text("cannot list %s", base),
            failed,
            Text("Fix the cause and run it again.")
        );
    }
    return names;
}

} // namespace

KOwnership::KOwnership(const std::string& serviceName, bool isInstalled, const std::string& itsBase)
    : service(serviceName),
      base(itsBase) {
    try {
        if (auto read = KManifest::Read(service, base)) {
            manifest = std::move(*read);
        } else if (isInstalled) {
            known = Known::Nothing;
        }
        begun = KWriteJournal::Read(service, base);
    } catch (const KSetupFailure& failure) {
        if (!failure.IsDenied() && !failure.IsDamage()) {
            throw;
        }
        known = failure.IsDenied() ? Known::Denied : Known::Nothing;
        damage = failure.IsDenied() ? KText() : failure.GetText();
    }
}

bool KOwnership::Owns(const std::string& path) const {
    return known != Known::Manifest || Find(path) != nullptr || WasBegun(path) || WasMadeNow(path);
}

bool KOwnership::WasMadeNow(const std::string& path) const {
    return madeNow && madeNow(NormalPath(path));
}

bool KOwnership::WasBornNow(const std::string& path) const {
    return runBegan != 0 && KSYS::ReadBirthTime(NormalPath(path)) >= runBegan;
}

void KOwnership::NoteBegin() noexcept {
    runBegan = KSYS::ReadFileClock();
}

const KManifestEntry* KOwnership::Find(const std::string& path) const {
    const std::string normal = NormalPath(path);
    const KManifestEntry* entry = manifest.Find(normal);
    return entry != nullptr || manifest.GetEntries().empty() ? entry : FindReal(normal);
}

bool KOwnership::WasBegun(const std::string& path) const {
    return !begun.made.empty() && begun.made.contains(NormalPath(path));
}

bool KOwnership::WasRewritten(const std::string& path) const {
    return !begun.rewritten.empty() && begun.rewritten.contains(NormalPath(path));
}

bool KOwnership::WasEdited(const std::string& path) const {
    return !begun.edited.empty() && begun.edited.contains(NormalPath(path));
}

std::string KOwnership::FindOther(const std::string& path) const {
    if (known == Known::Denied) {
        return {};
    }
    if (!others) {
        LoadOthers();
    }
    if (others->empty()) {
        return {};
    }
    const auto found = others->find(RealPath(path));
    return found != others->end() ? found->second : std::string();
}

std::string KOwnership::RealPath(const std::string& path) const {
    const std::string normal = NormalPath(path);
    return JoinPath(directories.Find(ParentPath(normal)), NameOfPath(normal));
}

const KManifestEntry* KOwnership::FindReal(const std::string& normal) const {
    if (!real) {
        real.emplace();
        for (const auto& [path, entry] : manifest.GetEntries()) {
            real->emplace(RealPath(path), &entry);
        }
    }
    const auto found = real->find(RealPath(normal));
    return found != real->end() ? found->second : nullptr;
}

void KOwnership::LoadOthers() const {
    others.emplace();
    for (const std::string& name : KnownServices(base)) {
        if (name == service) {
            continue;
        }
        try {
            const auto read = KManifest::Read(name, base);
            if (!read) {
                continue;
            }
            for (const auto& [path, entry] : read->GetEntries()) {
                if (entry.kind != KManifestEntry::Kind::Directory) {
                    others->emplace(RealPath(path), name);
                }
            }
        } catch (const KSetupFailure& failure) {
            if (!failure.IsDenied() && !failure.IsDamage()) {
                throw;
            }
            // a run of that product tells of it; nothing can be known here
        }
    }
}

} // namespace KSETUP
