// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/state/KKitLook.h>
#include <setup/state/KPrivateDirectory.h>

#include <cstring>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

void RequireReadableKit(unsigned failed, const std::string& path) {
    if (failed != 0) {
        throw SystemFailure(
            ExitCode::noKit,
            Text("cannot read %s", path),
            failed,
            Text("All of a kit has to be readable.")
        );
    }
}

KKitLook::KKitLook(const std::string& itsDirectory) : directory(itsDirectory) {
    Add("");
    // It stays to the end of a run.
    entries.shrink_to_fit();
    texts.shrink_to_fit();
}

const char* KKitLook::TargetOf(const Entry& entry) const noexcept {
    const char* path = PathOf(entry);
    return path + std::strlen(path) + 1;
}

std::optional<std::span<const KKitLook::Entry>> KKitLook::Find(const std::string& below) const {
    const auto found = directories.find(below);
    if (found == directories.end()) {
        return std::nullopt;
    }
    return std::span(entries).subspan(found->second.first, found->second.count);
}

/// By the open directory, which costs a fraction; and only one is open, however deep they are.
void KKitLook::Add(const std::string& below) {
    std::vector<std::string> names;
    std::vector<std::string> inner;
    const std::string parent = below.empty() ? directory : JoinPath(directory, below);
    {
        KSYS::KDescriptor open;
        RequireReadableKit(KSYS::OpenDirectoryEntry(parent + "/.", open), parent); // also by a link
        RequireReadableKit(KSYS::ListEntries({open.Get(), "."}, names), parent);
        directories[below] = {entries.size(), names.size()};
        for (const std::string& name : names) {
            Entry entry;
            std::string target;
            std::string path = below.empty() ? name : below + "/" + name;
            const KSYS::Entry at{open, name};
            RequireReadableKit(
                KSYS::ReadEntryStatus(at, KSYS::LastLink::Keep, entry.status), parent + "/" + name
            );
            if (S_ISLNK(entry.status.mode)) {
                RequireReadableKit(KSYS::ReadLink(at, target), parent + "/" + name);
            }
            entry.text = texts.size();
            texts.append(path).append(1, '\0').append(target).append(1, '\0');
            entries.push_back(entry);
            if (S_ISDIR(entry.status.mode)) {
                inner.push_back(std::move(path));
            }
        }
    }
    for (const std::string& one : inner) {
        Add(one);
    }
}

} // namespace KSETUP
