// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/files/KFileDigest.h>
#include <setup/files/PathText.h>
#include <setup/state/KJsonLine.h>
#include <setup/state/KManifest.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace KSETUP {

namespace {

using Kind = KManifestEntry::Kind;
constexpr const char* fileName = "manifest";
constexpr const char* format = "ins++ manifest";
constexpr std::uint64_t formatVersion = 1;
constexpr unsigned modeBits = 07777;

Kind ToKind(const std::string& word) {
    for (const Kind kind : {Kind::File, Kind::Directory, Kind::Link}) {
        if (word == KindWord(kind)) {
            return kind;
        }
    }
    throw std::invalid_argument("the unknown kind \"" + word + "\"");
}

bool IsMissing(unsigned errorNumber) noexcept {
    return errorNumber == ENOENT || errorNumber == ENOTDIR;
}

KSetupFailure CannotLookAt(const std::string& path, unsigned errorNumber) {
    return SystemFailure(
        ExitCode::cannotWrite,
        "cannot read",
        path,
        errorNumber,
        "So the manifest is not written. Fix the cause and run it again."
    );
}

} // namespace

KManifest::KManifest(const std::vector<std::string>& paths, const KDigests& known) {
    for (const std::string& written : paths) {
        const std::string path = NormalPath(written);
        unsigned whyMissing = 0;
        std::optional<KManifestEntry> entry = LookAtEntry(path, &whyMissing);
        if (!entry) {
            if (whyMissing != 0 && !IsMissing(whyMissing)) {
                throw CannotLookAt(path, whyMissing);
            }
            continue;
        }
        if (entry->kind == Kind::File) {
            const auto copied = known.find(path);
            const bool isKnown = copied != known.end() && copied->second.size == entry->size;
            const KFileDigest digest = isKnown ? copied->second : DigestFile(path);
            if (digest.errorNumber != 0) {
                throw CannotLookAt(path, digest.errorNumber);
            }
            entry->size = digest.size;
            entry->digest = digest.sha256;
        }
        entries[path] = std::move(*entry);
    }
}

void KManifest::Merge(const KManifest& former) {
    for (const auto& [path, entry] : former.entries) {
        unsigned whyMissing = 0;
        if (LookAtEntry(path, &whyMissing) || !IsMissing(whyMissing)) {
            entries.try_emplace(path, entry);
        }
    }
}

void KManifest::Write(const std::string& serviceName, const std::string& base) const {
    KJsonLine head;
    head.Put("format", format);
    head.Put("formatVersion", formatVersion);
    if (!run.empty()) {
        head.Put("run", run);
    }
    std::string text = head.ToText();
    for (const auto& [path, entry] : entries) {
        KJsonLine line;
        line.Put("path", path);
        line.Put("kind", KindWord(entry.kind));
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
            run = line.Has("run") ? line.GetText("run") : "";
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
