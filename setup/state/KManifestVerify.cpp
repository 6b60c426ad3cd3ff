// SPDX-License-Identifier: MIT
#include <setup/files/KFileDigest.h>
#include <setup/files/PathText.h>
#include <setup/output/TextFormat.h>
#include <setup/state/KManifest.h>

#include <cerrno>
#include <system_error>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileCalls.h>
#include <sys/processes/ProcessIsolation.h>

namespace KSETUP {

namespace {

KText KindText(KManifestEntry::Kind kind) {
    return kind == KManifestEntry::Kind::File        ? Text("a file")
           : kind == KManifestEntry::Kind::Directory ? Text("a directory")
                                                     : Text("a link");
}

using EntryKind = KManifestEntry::Kind;
using Different = KManifestDifference::Kind;
constexpr unsigned modeBits = 07777;

std::string OwnerText(const KManifestEntry& entry) {
    return std::to_string(entry.owner) + ":" + std::to_string(entry.group);
}

std::uint64_t Nanoseconds(const timespec& time) {
    constexpr std::uint64_t inSecond = 1'000'000'000;
    return static_cast<std::uint64_t>(time.tv_sec) * inSecond +
           static_cast<std::uint64_t>(time.tv_nsec);
}

/// Finds what is different with one entry, and appends it.
class Comparison {
  public:
    Comparison(
        const std::string& itsPath,
        const KManifestEntry& installed,
        std::vector<KManifestDifference>& found
    )
        : path(itsPath),
          was(installed),
          differences(found) {}

    void Compare(bool contentMayChange) {
        unsigned missing = 0;
        const std::optional<KManifestEntry> now = LookAtEntry(path, &missing);
        if (!now) {
            TellMissing(missing);
        } else if (now->kind != was.kind) {
            Tell(
                Different::Type,
                Text("is %s instead of %s", KindText(now->kind), KindText(was.kind))
            );
        } else {
            if (now->target != was.target) {
                Tell(Different::Target, Text("leads to %s instead of %s", now->target, was.target));
            }
            if (now->mode != was.mode) {
                Tell(
                    Different::Mode,
                    Text("has mode %s instead of %s", ModeText(now->mode), ModeText(was.mode))
                );
            }
            CompareOwner(*now);
            if (was.kind == EntryKind::File && !contentMayChange) {
                CompareContent(*now);
            }
        }
    }

  private:
    void Tell(Different kind, const KText& words) { differences.push_back({path, kind, words}); }

    void TellMissing(unsigned errorNumber) {
        if (errorNumber == ENOENT || errorNumber == ENOTDIR) {
            Tell(Different::Missing, Text("is missing"));
        } else if (errorNumber == 0) {
            Tell(
                Different::Type,
                Text("is a device, a queue or a socket instead of %s", KindText(was.kind))
            );
        } else {
            TellUnreadable(errorNumber);
        }
    }

    void CompareOwner(const KManifestEntry& now) {
        const bool isKnown = was.modified != 0 || was.owner != 0 || was.group != 0;
        if (isKnown && (now.owner != was.owner || now.group != was.group)) {
            Tell(
                Different::Owner,
                Text("belongs to %s instead of %s", OwnerText(now), OwnerText(was))
            );
        }
    }

    void TellUnreadable(unsigned errorNumber) {
        Tell(
            Different::Unreadable,
            Text(
                "cannot be looked at: %s",
                std::generic_category().message(static_cast<int>(errorNumber))
            )
        );
    }

    void CompareContent(const KManifestEntry& now) {
        if (now.size != was.size) { // without reading it
            Tell(Different::Content, Text("has %s bytes instead of %s", now.size, was.size));
            return;
        }
        const KFileDigest digest = DigestFile(path);
        if (digest.errorNumber != 0) {
            TellUnreadable(digest.errorNumber);
        } else if (digest.sha256 != was.digest) {
            Tell(Different::Content, Text("has another content of the same size"));
        }
    }

    const std::string& path;
    const KManifestEntry& was;
    std::vector<KManifestDifference>& differences;
};

} // namespace

const char* KindWord(KManifestEntry::Kind kind) noexcept {
    return kind == EntryKind::File ? "file" : kind == EntryKind::Directory ? "directory" : "link";
}

std::optional<KManifestEntry> LookAtEntry(const KSYS::Entry& at, unsigned* whyMissing) {
    struct stat status {};
    KManifestEntry entry;
    unsigned failed = KSYS::ReadStatus(at, KSYS::LastLink::Keep, status);
    if (failed == 0 && S_ISLNK(status.st_mode)) {
        failed = KSYS::ReadLink(at, entry.target);
    }
    if (whyMissing != nullptr) {
        *whyMissing = failed;
    }
    if (failed != 0) {
        return std::nullopt;
    }
    entry.mode = status.st_mode & modeBits;
    entry.owner = status.st_uid;
    entry.group = status.st_gid;
    if (S_ISREG(status.st_mode)) {
        entry.size = static_cast<std::uint64_t>(status.st_size);
        entry.modified = Nanoseconds(status.st_mtim);
    } else if (S_ISDIR(status.st_mode)) {
        entry.kind = EntryKind::Directory;
    } else if (S_ISLNK(status.st_mode)) {
        entry.kind = EntryKind::Link;
        entry.mode = 0;
    } else {
        return std::nullopt;
    }
    return entry;
}

/// To open the directory for one path would cost more than it saves.
std::optional<KManifestEntry> KEntryLook::At(const std::string& normalPath, unsigned& whyMissing) {
    std::string parent = ParentPath(normalPath);
    const std::size_t name = normalPath.size() - NameOfPath(normalPath).size();
    if (parent != directoryPath) {
        directory.Reset();
        directoryPath = std::move(parent);
    } else if (!directory.IsOpen() && name < normalPath.size()) {
        // Where that fails, so does the look, and tells why.
        static_cast<void>(KSYS::OpenDirectory(directoryPath.c_str(), directory));
    }
    return directory.IsOpen()
               ? LookAtEntry({directory.Get(), normalPath.c_str() + name}, &whyMissing)
               : LookAtEntry(normalPath, &whyMissing);
}

bool CountsAsMissing(unsigned whyMissing) noexcept {
    return whyMissing == 0 || whyMissing == ENOENT || whyMissing == ENOTDIR ||
           (whyMissing == EACCES && !KSYS::IsRoot());
}

std::vector<KManifestDifference> KManifest::Verify(const std::set<std::string>& mayChange) const {
    std::vector<KManifestDifference> differences;
    std::set<std::string> edited;
    for (const std::string& path : mayChange) {
        edited.insert(NormalPath(path));
    }
    for (const auto& [path, entry] : entries) {
        Comparison(path, entry, differences)
            .Compare(entry.isConfiguration || edited.contains(path));
    }
    return differences;
}

void KManifest::LookAtEach(const KEntryLooked& looked) const {
    KEntryLook look;
    const std::string* gone = nullptr; // a directory, behind which comes what was in it
    for (const auto& [path, entry] : entries) {
        unsigned whyMissing = ENOENT;
        const bool isThere =
            (gone == nullptr || !IsAtOrBelow(path, *gone)) && look.At(path, whyMissing).has_value();
        if (whyMissing == ENOENT && entry.kind == EntryKind::Directory) {
            gone = &path;
        }
        looked(path, entry, isThere, whyMissing);
    }
}

std::vector<std::string> KManifest::FindRemaining() const {
    std::vector<std::string> remaining;
    LookAtEach([&](const std::string& path, const KManifestEntry&, bool, unsigned whyMissing) {
        if (whyMissing != ENOENT && whyMissing != ENOTDIR) {
            remaining.push_back(path);
        }
    });
    return remaining;
}

} // namespace KSETUP
