// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/kit/KitFiles.h>
#include <setup/state/KKeptKit.h>
#include <setup/state/KPinnedKey.h>
#include <setup/state/KPrivateDirectory.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <vector>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileContent.h>
#include <sys/files/FileStatus.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr const char* keptName = "kit";
constexpr const char* newKeptName = "kit.new";

void Require(unsigned failed, const KText& what) {
    if (failed != 0) {
        throw SystemFailure(
            ExitCode::cannotWrite, what, failed, Text("Fix the cause and run it again.")
        );
    }
}

/// Also where nothing stands.
void RemoveTree(const KPrivateDirectory& directory, const char* name) {
    const std::string path = directory.GetPath() + "/" + name;
    std::error_code error;
    fs::remove_all(path, error);
    Require(static_cast<unsigned>(error.value()), Text("cannot delete %s", path));
}

/// What root will run at the removal is what was sealed, whatever the kit has by now.
void RequireSealed(const std::string& kept, const std::string& source, const KDigests& sealed) {
    if (sealed.empty()) {
        return;
    }
    const auto known = sealed.find(source);
    if (known == sealed.end() || DigestFile(kept).sha256 != known->second.sha256) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text(
                "%s is not what the kit's SHA256SUMS lists: somebody changed the kit during the "
                "run. Look who may, get it again, and run it again.",
                source
            )
        );
    }
}

/// Nothing where the directory itself is missing.
void AddBelow(const std::string& directory, std::vector<std::string>& paths) {
    std::vector<std::string> names;
    const unsigned failed = KSYS::ListEntries(directory, names);
    Require(failed == ENOENT ? 0 : failed, Text("cannot list %s", directory));
    for (const std::string& name : names) {
        const std::string path = directory + "/" + name;
        struct stat status {};
        Require(
            KSYS::ReadStatus(path, KSYS::LastLink::Keep, status), Text("cannot look at %s", path)
        );
        paths.push_back(path);
        if (S_ISDIR(status.st_mode)) {
            AddBelow(path, paths);
        }
    }
}

std::optional<KPrivateDirectory> OpenKept(const std::string& serviceName, const std::string& base) {
    const auto directory = KPrivateDirectory::OpenExisting(base, serviceName);
    return directory ? directory->ExistingBelow(keptName) : std::nullopt;
}

/// In one step where the file system can.
void PutInPlace(const KPrivateDirectory& directory) {
    unsigned failed = KSYS::RenameEntry(directory.Get(), newKeptName, keptName);
    if (failed == ENOTEMPTY || failed == EEXIST) {
        failed = KSYS::ExchangeEntries(directory.Get(), newKeptName, keptName);
    }
    if (failed == EINVAL || failed == ENOSYS) {
        RemoveTree(directory, keptName);
        failed = KSYS::RenameEntry(directory.Get(), newKeptName, keptName);
    }
    Require(failed, Text("cannot replace %s", directory.GetPath() + "/" + keptName));
    RemoveTree(directory, newKeptName);
    directory.Flush();
}

} // namespace

void KKeptKit::Write(
    const std::string& serviceName,
    const std::string& kitDirectory,
    const std::set<std::string>& files,
    const KDigests& sealed,
    const std::map<std::string, std::string>& further,
    const std::string& base
) {
    const KPrivateDirectory directory(base, serviceName);
    RemoveTree(directory, newKeptName); // of a run that was killed
    const KPrivateDirectory made = directory.Below(newKeptName);
    std::set<std::string> kept = files;
    kept.insert({"product.ini", "install.ini"});
    for (const std::string& file : kept) {
        const fs::path target = fs::path(made.GetPath()) / file;
        MakeDirectories(target.parent_path());
        const std::string source = (fs::path(kitDirectory) / file).string();
        CopyBytes(source, target);
        RequireSealed(target.string(), source, sealed);
    }
    for (const auto& [name, text] : further) {
        made.WriteDurably(name, text);
    }
    Require(KSYS::FlushFileSystem(made.Get()), Text("cannot flush %s", made.GetPath()));
    PutInPlace(directory);
}

std::optional<std::string>
KKeptKit::FindDirectory(const std::string& serviceName, const std::string& base) {
    const auto kit = OpenKept(serviceName, base);
    return kit ? std::optional(kit->GetPath()) : std::nullopt;
}

std::optional<std::string> KKeptKit::ReadFile(
    const std::string& serviceName, const std::string& file, const std::string& base
) {
    const auto kit = OpenKept(serviceName, base);
    return kit ? kit->Read(file) : std::nullopt;
}

std::vector<std::string>
KKeptKit::ListPaths(const std::string& serviceName, const std::string& base) {
    const std::string kept = base + "/" + serviceName + "/" + keptName;
    std::vector<std::string> paths = {kept};
    AddBelow(kept, paths);
    return paths;
}

void KKeptKit::RemoveUnlessNeeded(const std::string& serviceName, const std::string& base) {
    const auto directory = KPrivateDirectory::OpenExisting(base, serviceName);
    std::vector<std::string> names;
    if (!directory || KSYS::ListEntries({directory->Get(), "."}, names) != 0) {
        return;
    }
    const bool isNeeded = std::any_of(names.begin(), names.end(), [](const std::string& name) {
        return name != keptName && name != newKeptName && name != KPinnedKey::fileName;
    });
    if (!isNeeded) {
        RemoveTree(*directory, newKeptName);
        // Half of a kit counts as none.
        const unsigned failed = KSYS::RenameEntry(directory->Get(), keptName, newKeptName);
        Require(
            failed == ENOENT ? 0 : failed, Text("cannot delete %s", directory->GetPath() + "/kit")
        );
        RemoveTree(*directory, newKeptName);
        directory->Flush();
    }
}

} // namespace KSETUP
