// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupStop.h>
#include <setup/files/PathText.h>
#include <setup/state/KJsonLine.h>
#include <setup/state/KKitFingerprint.h>
#include <setup/state/KPrivateDirectory.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

namespace {

constexpr const char* fileName = "fingerprint";
constexpr const char* fingerprintFormat = "ins++ fingerprint";
constexpr std::uint64_t fingerprintVersion = 1;

void RequireRead(unsigned failed, const std::string& path) {
    if (failed != 0) {
        throw SystemFailure(
            ExitCode::noKit,
            Text("cannot read %s", path),
            failed,
            Text("All of a kit has to be readable.")
        );
    }
}

/// Ends in a byte that no text has, so that no two lists of texts look the same.
void Append(std::string& all, std::string_view text) {
    all += text;
    all += '\0';
}

} // namespace

KKitFingerprint::KKitFingerprint(const std::string& kitDirectory) : directory(kitDirectory) {
    Add("");
    std::sort(entries.begin(), entries.end(), [this](const Entry& left, const Entry& right) {
        return std::string_view(PathOf(left)) < PathOf(right);
    });
    std::string all;
    for (const Entry& entry : entries) {
        Append(all, PathOf(entry));
        Append(all, std::to_string(entry.mode));
        Append(all, std::to_string(entry.size));
        Append(all, std::to_string(entry.seconds));
        Append(all, std::to_string(entry.nanoseconds));
        Append(all, TargetOf(entry));
    }
    look = DigestBytes(all);
}

const char* KKitFingerprint::TargetOf(const Entry& entry) const noexcept {
    const char* path = PathOf(entry);
    return path + std::strlen(path) + 1;
}

/// By the open directory, which costs a fraction; and only one is open, however deep they are.
void KKitFingerprint::Add(const std::string& below) {
    std::vector<std::string> names;
    std::vector<std::string> directories;
    const std::string parent = below.empty() ? directory : JoinPath(directory, below);
    {
        KSYS::KDescriptor open;
        RequireRead(KSYS::OpenDirectoryEntry(parent + "/.", open), parent); // also by a link
        RequireRead(KSYS::ListEntries({open.Get(), "."}, names), parent);
        for (const std::string& name : names) {
            Entry entry;
            std::string target;
            std::string path = below.empty() ? name : below + "/" + name;
            const KSYS::Entry at{open, name};
            struct stat status {};
            RequireRead(KSYS::ReadStatus(at, KSYS::LastLink::Keep, status), parent + "/" + name);
            entry.mode = status.st_mode;
            entry.seconds = status.st_mtim.tv_sec;
            entry.nanoseconds = status.st_mtim.tv_nsec;
            if (S_ISREG(status.st_mode)) {
                entry.size = static_cast<std::uint64_t>(status.st_size);
            } else if (S_ISLNK(status.st_mode)) {
                RequireRead(KSYS::ReadLink(at, target), parent + "/" + name);
            } else if (S_ISDIR(status.st_mode)) {
                directories.push_back(path);
            }
            entry.text = texts.size();
            Append(texts, path);
            Append(texts, target);
            entries.push_back(entry);
        }
    }
    for (const std::string& one : directories) {
        Add(one);
    }
}

std::string KKitFingerprint::ReadContent(
    const KnownFiles& known, const std::function<bool()>& shallStop
) const {
    std::string all;
    for (const Entry& entry : entries) {
        Append(all, PathOf(entry));
        Append(all, std::to_string(entry.mode));
        Append(all, TargetOf(entry));
        if (!S_ISREG(entry.mode)) {
            continue;
        }
        const std::string path = JoinPath(directory, PathOf(entry));
        if (const auto found = known.find(path);
            found != known.end() && found->second.size == entry.size) {
            Append(all, found->second.sha256);
            continue;
        }
        const KFileDigest digest = DigestFile(path, shallStop);
        if (digest.errorNumber == ECANCELED) {
            throw KSetupStop(Text("Stopped on request. Nothing was changed."));
        }
        RequireRead(digest.errorNumber, path);
        Append(all, digest.sha256);
    }
    return DigestBytes(all);
}

void KInstalledKit::Write(const std::string& serviceName, const std::string& base) const {
    KJsonLine line;
    line.Put("format", fingerprintFormat);
    line.Put("formatVersion", fingerprintVersion);
    line.Put("look", look);
    line.Put("content", content);
    line.Put("manifest", manifest);
    KPrivateDirectory(base, serviceName).WriteDurably(fileName, line.ToText());
}

std::optional<KInstalledKit>
KInstalledKit::Read(const std::string& serviceName, const std::string& base) {
    const auto directory = KPrivateDirectory::OpenExisting(base, serviceName);
    const auto text = directory ? directory->Read(fileName) : std::nullopt;
    if (!text) {
        return std::nullopt;
    }
    try {
        const KJsonLine line(*text);
        if (line.GetText("format") != fingerprintFormat ||
            line.GetNumber("formatVersion") != fingerprintVersion) {
            return std::nullopt;
        }
        return KInstalledKit{
            line.GetText("look"), line.GetText("content"), line.GetText("manifest")};
    } catch (const std::invalid_argument&) {
        return std::nullopt;
    }
}

void KInstalledKit::Remove(const std::string& serviceName, const std::string& base) {
    if (const auto directory = KPrivateDirectory::OpenExisting(base, serviceName)) {
        directory->Delete(fileName);
    }
}

} // namespace KSETUP
