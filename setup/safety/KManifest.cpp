// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/safety/KFileDigest.h>
#include <setup/safety/KJsonLine.h>
#include <setup/safety/KManifest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include <sys/stat.h>

namespace KSETUP {

namespace {

using Kind = KManifestEntry::Kind;
using Different = KManifestDifference::Kind;
constexpr const char* fileName = "manifest";
constexpr const char* format = "ins++ manifest";
constexpr std::uint64_t formatVersion = 1;
constexpr unsigned modeBits = 07777;

const char* Word(Kind kind) {
    return kind == Kind::File ? "file" : kind == Kind::Directory ? "directory" : "link";
}

Kind ToKind(const std::string& word) {
    for (const Kind kind : {Kind::File, Kind::Directory, Kind::Link}) {
        if (word == Word(kind)) {
            return kind;
        }
    }
    throw std::invalid_argument("the unknown kind \"" + word + "\"");
}

std::string ModeText(unsigned mode) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%04o", mode & modeBits);
    return text.data();
}

std::string LinkTarget(const std::string& path, std::size_t bytes) {
    std::string target(bytes + 1, '\0');
    const ssize_t count = ::readlink(path.c_str(), target.data(), target.size());
    target.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return target;
}

/// What stands at a path, a file's content left out; nothing for what is not there, with the
/// reason in errno (0 for what is of no kind that is installed).
std::optional<KManifestEntry> Look(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    KManifestEntry entry;
    entry.mode = status.st_mode & modeBits;
    if (S_ISREG(status.st_mode)) {
        entry.size = static_cast<std::uint64_t>(status.st_size);
    } else if (S_ISDIR(status.st_mode)) {
        entry.kind = Kind::Directory;
    } else if (S_ISLNK(status.st_mode)) {
        entry.kind = Kind::Link;
        entry.mode = 0;
        entry.target = LinkTarget(path, static_cast<std::size_t>(status.st_size));
    } else {
        errno = 0;
        return std::nullopt;
    }
    return entry;
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
        const std::optional<KManifestEntry> now = Look(path);
        if (!now) {
            TellMissing(errno);
        } else if (now->kind != was.kind) {
            Tell(
                Different::Type,
                std::string("is a ") + Word(now->kind) + " instead of a " + Word(was.kind)
            );
        } else {
            if (now->target != was.target) {
                Tell(Different::Target, "leads to " + now->target + " instead of " + was.target);
            }
            if (now->mode != was.mode) {
                Tell(
                    Different::Mode,
                    "has mode " + ModeText(now->mode) + " instead of " + ModeText(was.mode)
                );
            }
            if (was.kind == Kind::File && !contentMayChange) {
                CompareContent(*now);
            }
        }
    }

  private:
    void Tell(Different kind, const std::string& words) {
        differences.push_back({path, kind, words});
    }

    void TellMissing(int errorNumber) {
        if (errorNumber == ENOENT || errorNumber == ENOTDIR) {
            Tell(Different::Missing, "is missing");
        } else if (errorNumber == 0) {
            Tell(
                Different::Type,
                std::string("is a device, a queue or a socket instead of a ") + Word(was.kind)
            );
        } else {
            TellUnreadable(errorNumber);
        }
    }

    void TellUnreadable(int errorNumber) {
        Tell(
            Different::Unreadable,
            "cannot be looked at: " + std::generic_category().message(errorNumber)
        );
    }

    void CompareContent(const KManifestEntry& now) {
        if (now.size != was.size) { // without reading it
            Tell(
                Different::Content,
                "has " + std::to_string(now.size) + " bytes instead of " + std::to_string(was.size)
            );
            return;
        }
        const KFileDigest digest = DigestFile(path);
        if (digest.errorNumber != 0) {
            TellUnreadable(digest.errorNumber);
        } else if (digest.sha256 != was.digest) {
            Tell(Different::Content, "has another content of the same size");
        }
    }

    const std::string& path;
    const KManifestEntry& was;
    std::vector<KManifestDifference>& differences;
};

} // namespace

KManifest::KManifest(
    const std::vector<std::string>& paths, const std::function<bool()>& shallStop
) {
    for (const std::string& path : paths) {
        if (shallStop && shallStop()) {
            return;
        }
        std::optional<KManifestEntry> entry = Look(path);
        if (!entry) {
            continue;
        }
        if (entry->kind == Kind::File) {
            const KFileDigest digest = DigestFile(path, shallStop);
            if (digest.errorNumber == ECANCELED) {
                return;
            }
            if (digest.errorNumber != 0) {
                throw SystemFailure(
                    ExitCode::cannotWrite,
                    "cannot read",
                    path,
                    digest.errorNumber,
                    "So the manifest is not written; mend the cause and run it again."
                );
            }
            entry->size = digest.size;
            entry->digest = digest.sha256;
        }
        entries[path] = std::move(*entry);
    }
}

void KManifest::Merge(const KManifest& former) {
    for (const auto& [path, entry] : former.entries) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) == 0) {
            entries.try_emplace(path, entry);
        }
    }
}

std::vector<KManifestDifference> KManifest::Verify(const std::set<std::string>& mayChange) const {
    std::vector<KManifestDifference> differences;
    for (const auto& [path, entry] : entries) {
        Comparison(path, entry, differences).Compare(mayChange.contains(path));
    }
    return differences;
}

std::vector<std::string> KManifest::GetRemaining() const {
    std::vector<std::string> remaining;
    for (const auto& [path, entry] : entries) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) == 0) {
            remaining.push_back(path);
        }
    }
    return remaining;
}

void KManifest::Write(const std::string& serviceName, const std::string& base) const {
    KJsonLine head;
    head.Put("format", format);
    head.Put("formatVersion", formatVersion);
    std::string text = head.ToText();
    for (const auto& [path, entry] : entries) {
        KJsonLine line;
        line.Put("path", path);
        line.Put("kind", Word(entry.kind));
        if (entry.kind == Kind::Link) {
            line.Put("target", entry.target);
        } else {
            line.Put("mode", std::uint64_t{entry.mode});
        }
        if (entry.kind == Kind::File) {
            line.Put("size", entry.size);
            line.Put("sha256", entry.digest);
        }
        text += line.ToText();
    }
    KJsonLine end;
    end.Put("entries", std::uint64_t{entries.size()});
    KPrivateDirectory(base, serviceName).WriteDurably(fileName, text + end.ToText());
}

void KManifest::Parse(const std::string& text) {
    bool complete = false;
    std::uint64_t number = 0;
    for (std::size_t at = 0; at < text.size(); ++number) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const KJsonLine line(std::string_view(text).substr(at, end - at));
        at = end + 1;
        if (number == 0) {
            if (line.GetText("format") != format ||
                line.GetNumber("formatVersion") != formatVersion) {
                throw std::invalid_argument("written by another version of the program");
            }
        } else if (complete) {
            throw std::invalid_argument("more than its last line");
        } else if (line.Has("entries")) {
            complete = line.GetNumber("entries") == entries.size();
        } else {
            KManifestEntry entry;
            entry.kind = ToKind(line.GetText("kind"));
            if (entry.kind == Kind::Link) {
                entry.target = line.GetText("target");
            } else {
                entry.mode = static_cast<unsigned>(line.GetNumber("mode") & modeBits);
            }
            if (entry.kind == Kind::File) {
                entry.size = line.GetNumber("size");
                entry.digest = line.GetText("sha256");
            }
            entries[line.GetText("path")] = std::move(entry);
        }
    }
    if (!complete) {
        throw std::invalid_argument("its end is missing");
    }
}

std::optional<KManifest> KManifest::Read(const std::string& serviceName, const std::string& base) {
    const auto directory = KPrivateDirectory::OpenExisting(base, serviceName);
    const auto text = directory ? directory->Read(fileName) : std::nullopt;
    if (!text) {
        return std::nullopt;
    }
    try {
        KManifest manifest;
        manifest.Parse(*text);
        return manifest;
    } catch (const std::invalid_argument& what) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            directory->GetPath() + "/" + fileName + " cannot be understood (" + what.what() +
                "). Delete it and install the product again; that writes it anew."
        );
    }
}

void KManifest::Remove(const std::string& serviceName, const std::string& base) {
    if (const auto directory = KPrivateDirectory::OpenExisting(base, serviceName)) {
        directory->Delete(fileName);
    }
}

} // namespace KSETUP
