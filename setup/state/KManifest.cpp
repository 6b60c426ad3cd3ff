// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/files/KFileDigest.h>
#include <setup/files/PathText.h>
#include <setup/state/KJsonLine.h>
#include <setup/state/KManifest.h>
#include <setup/state/LinePieces.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace KSETUP {

namespace {

using EntryKind = KManifestEntry::Kind;
constexpr const char* manifestName = "manifest";
constexpr const char* manifestFormat = "ins++ manifest";
constexpr std::uint64_t manifestVersion = 1;
constexpr unsigned keptBits = 07777;

EntryKind ToEntryKind(const std::string& word) {
    for (const EntryKind kind : {EntryKind::File, EntryKind::Directory, EntryKind::Link}) {
        if (word == KindWord(kind)) {
            return kind;
        }
    }
    throw std::invalid_argument("the unknown kind \"" + word + "\"");
}

/// What has a usual value, and is written where it has another.
void PutOptional(KJsonLine& line, const KManifestEntry& entry) {
    if (entry.owner != 0) {
        line.Put("owner", std::uint64_t{entry.owner});
    }
    if (entry.group != 0) {
        line.Put("group", std::uint64_t{entry.group});
    }
    if (entry.isConfiguration) {
        line.Put("configuration", std::uint64_t{1});
    }
    if (!entry.kitDigest.empty()) {
        line.Put("kitSha256", entry.kitDigest);
    }
}

std::string EntryLine(const std::string& path, const KManifestEntry& entry) {
    KJsonLine line;
    line.Put("path", path);
    line.Put("kind", KindWord(entry.kind));
    if (entry.kind == EntryKind::Link) {
        line.Put("target", entry.target);
    } else {
        line.Put("mode", std::uint64_t{entry.mode});
    }
    if (entry.kind == EntryKind::File) {
        line.Put("size", entry.size);
        line.Put("sha256", entry.digest);
        line.Put("modified", entry.modified);
    }
    PutOptional(line, entry);
    return line.ToText();
}

/// Older manifests have nothing of this.
void ReadOptional(const KJsonLine& line, KManifestEntry& entry) {
    const auto number = [&](const char* key) {
        return line.Has(key) ? line.GetNumber(key) : std::uint64_t{0};
    };
    entry.modified = number("modified");
    entry.owner = static_cast<unsigned>(number("owner"));
    entry.group = static_cast<unsigned>(number("group"));
    entry.isConfiguration = number("configuration") != 0;
    entry.kitDigest = line.Has("kitSha256") ? line.GetText("kitSha256") : "";
}

KSetupFailure CannotLookAt(const std::string& path, unsigned errorNumber) {
    return SystemFailure(
        ExitCode::cannotWrite,
        Text("cannot read %s", path),
        errorNumber,
        Text("So the manifest is not written. Fix the cause and run it again.")
    );
}

/// What `parse` makes of what `read` has of the file; nothing when there is none.
template <class Parsed, class Parse>
std::optional<Parsed> ReadFile(
    const std::string& serviceName,
    const std::string& base,
    std::optional<std::string> (KPrivateDirectory::*read)(const std::string& name) const,
    const Parse& parse
) {
    const auto directory = KPrivateDirectory::OpenExisting(base, serviceName);
    const auto text = directory ? ((*directory).*read)(manifestName) : std::nullopt;
    if (!text) {
        return std::nullopt;
    }
    try {
        return parse(*text);
    } catch (const std::invalid_argument& what) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text(
                "%s/%s cannot be understood (%s). Delete it and install the product again; that "
                "writes it anew.",
                directory->GetPath(),
                manifestName,
                what.what()
            )
        );
    }
}

} // namespace

KManifest::KManifest(const std::vector<std::string>& paths, KKeptDigests known) {
    KEntryLook look;
    for (const std::string& path : paths) {
        Add(path, known, look);
    }
}

void KManifest::Add(const std::string& written, KKeptDigests& known, KEntryLook& look) {
    std::string path = NormalPath(written);
    unsigned whyMissing = 0;
    std::optional<KManifestEntry> entry = look.At(path, whyMissing);
    if (!entry) {
        if (!CountsAsMissing(whyMissing)) {
            throw CannotLookAt(path, whyMissing);
        }
        return;
    }
    if (entry->kind == EntryKind::File) {
        const auto copied = known.extract(path); // one of the two goes as the other grows
        const bool isKnown = !copied.empty() && copied.mapped().size == entry->size;
        KFileDigest digest = isKnown ? std::move(copied.mapped()) : DigestFile(path);
        if (digest.errorNumber != 0) {
            throw CannotLookAt(path, digest.errorNumber);
        }
        entry->size = digest.size;
        entry->digest = std::move(digest.sha256);
    }
    entries.insert_or_assign(entries.end(), std::move(path), std::move(*entry)); // mostly sorted
}

void KManifest::Forget(const std::string& path) {
    entries.erase(path);
}

const KManifestEntry* KManifest::Find(const std::string& path) const {
    const auto found = entries.find(path);
    return found != entries.end() ? &found->second : nullptr;
}

void KManifest::RefreshRights(const std::string& path) {
    const auto found = entries.find(path);
    const std::optional<KManifestEntry> now = LookAtEntry(path);
    if (found != entries.end() && now && now->kind == found->second.kind) {
        found->second.mode = now->mode;
        found->second.owner = now->owner;
        found->second.group = now->group;
    }
}

void KManifest::MarkConfiguration(const std::string& path, const std::string& kitDigest) {
    const auto found = entries.find(path);
    if (found != entries.end() && found->second.kind == EntryKind::File) {
        found->second.isConfiguration = true;
        found->second.kitDigest = kitDigest == found->second.digest ? "" : kitDigest;
    }
}

void KManifest::MarkEdited(const std::string& path, const std::string& digest) {
    const auto found = entries.find(path);
    if (found != entries.end() && found->second.kind == EntryKind::File) {
        found->second.isConfiguration = true;
        found->second.digest = digest;
    }
}

KManifest KManifest::WithoutMissing() const {
    KManifest there;
    there.Merge(*this);
    return there;
}

bool KManifest::HasFiles() const noexcept {
    return std::any_of(entries.begin(), entries.end(), [](const auto& one) {
        return one.second.kind != EntryKind::Directory;
    });
}

void KManifest::Merge(const KManifest& former) {
    former.LookAtEach(
        [&](const std::string& path, const KManifestEntry& entry, bool isThere, unsigned whyMissing
        ) {
            if (!isThere && !CountsAsMissing(whyMissing)) {
                throw CannotLookAt(path, whyMissing);
            }
            if (isThere || whyMissing == 0) {
                entries.try_emplace(path, entry);
            }
        }
    );
}

void KManifest::Write(const std::string& serviceName, const std::string& base) const {
    KJsonLine head;
    head.Put("format", manifestFormat);
    head.Put("formatVersion", manifestVersion);
    if (!run.empty()) {
        head.Put("run", run);
    }
    if (product) {
        head.Put("version", product->version);
        head.Put("buildNumber", std::uint64_t{product->buildNumber});
        head.Put("productPath", product->path);
    }
    KJsonLine end;
    end.Put("entries", std::uint64_t{entries.size()});
    const auto toLine = [](const auto& one) { return EntryLine(one.first, one.second); };
    KPrivateDirectory(base, serviceName)
        .WriteDurably(manifestName, LinePieces(head.ToText(), entries, toLine, end.ToText()));
}

void KManifest::ParseHead(const KJsonLine& line) {
    if (line.GetText("format") != manifestFormat ||
        line.GetNumber("formatVersion") != manifestVersion) {
        throw std::invalid_argument("written by another version of the program");
    }
    run = line.Has("run") ? line.GetText("run") : "";
    if (line.Has("productPath")) {
        product = {
            line.GetText("version"),
            static_cast<unsigned>(line.GetNumber("buildNumber")),
            line.GetText("productPath")};
    }
}

void KManifest::Parse(const std::string& text) {
    bool complete = false;
    std::uint64_t number = 0;
    for (std::size_t at = 0; at < text.size(); ++number) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const KJsonLine line(std::string_view(text).substr(at, end - at));
        at = end + 1;
        if (number == 0) {
            ParseHead(line);
        } else if (complete) {
            throw std::invalid_argument("more than its last line");
        } else if (line.Has("entries")) {
            complete = line.GetNumber("entries") == entries.size();
        } else {
            KManifestEntry entry;
            entry.kind = ToEntryKind(line.GetText("kind"));
            if (entry.kind == EntryKind::Link) {
                entry.target = line.GetText("target");
            } else {
                entry.mode = static_cast<unsigned>(line.GetNumber("mode") & keptBits);
            }
            if (entry.kind == EntryKind::File) {
                entry.size = line.GetNumber("size");
                entry.digest = line.GetText("sha256");
            }
            ReadOptional(line, entry);
            // It is written by path.
            entries.insert_or_assign(entries.end(), line.GetText("path"), std::move(entry));
        }
    }
    if (!complete) {
        throw std::invalid_argument("its end is missing");
    }
}

std::optional<KManifest> KManifest::Read(const std::string& serviceName, const std::string& base) {
    const auto parse = [](const std::string& text) {
        KManifest manifest;
        manifest.Parse(text);
        return manifest;
    };
    return ReadFile<KManifest>(serviceName, base, &KPrivateDirectory::Read, parse);
}

std::optional<KManifestProduct>
KManifest::ReadProduct(const std::string& serviceName, const std::string& base) {
    const auto parse = [](const std::string& line) {
        KManifest manifest;
        manifest.ParseHead(KJsonLine(line));
        return manifest.product;
    };
    return ReadFile<KManifestProduct>(serviceName, base, &KPrivateDirectory::ReadFirstLine, parse);
}

void KManifest::Remove(const std::string& serviceName, const std::string& base) {
    if (const auto directory = KPrivateDirectory::OpenExisting(base, serviceName)) {
        directory->Delete(manifestName);
    }
}

} // namespace KSETUP
