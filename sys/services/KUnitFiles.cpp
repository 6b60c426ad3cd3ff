// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <utility>

#include <sys/files/FileCalls.h>
#include <sys/files/KFileReplacement.h>
#include <sys/files/WriteReport.h>
#include <sys/services/KServiceError.h>
#include <sys/services/KUnitFiles.h>
#include <sys/services/UnitText.h>
#include <sys/stat.h>

namespace KSYS {

namespace {

constexpr const char* ownDirectory = "/etc/systemd/system";

// In the order in which systemd looks. What generators and transient units leave in /run is no unit
// file of anybody's and not looked at.
constexpr std::array<const char*, 5> unitDirectories{
    ownDirectory,
    "/run/systemd/system",
    "/usr/local/lib/systemd/system",
    "/lib/systemd/system",
    "/usr/lib/systemd/system"};

// The keys of section [Install] that ask for a link, and the ending of the directory it is laid in.
struct LinkKey {
    const char* key;
    const char* ending;
};
constexpr std::array<LinkKey, 3> linkKeys{
    LinkKey{"WantedBy", ".wants"},
    LinkKey{"RequiredBy", ".requires"},
    LinkKey{"UpheldBy", ".upholds"}};

constexpr unsigned unitMode = 0644;
constexpr unsigned directoryMode = 0755;

void Require(unsigned status, const std::string& path) {
    if (status != 0) {
        const std::string reason = status == ENOLCK
                                       ? KDirectoryLock::WhyRefused()
                                       : std::generic_category().message(static_cast<int>(status));
        throw KServiceError(status, path + ": " + reason);
    }
}

std::string OwnPath(const std::string& name) {
    return std::string(ownDirectory) + '/' + name;
}

/// The words that a key of section [Install] lists; an empty value drops those before it.
std::vector<std::string> InstallWords(std::string_view text, const char* key) {
    std::vector<std::string> words;
    for (const std::string& value : UnitValues(text, "Install", key)) {
        if (value.empty()) {
            words.clear();
        }
        std::istringstream stream(value);
        for (std::string word; stream >> word;) {
            words.push_back(word);
        }
    }
    return words;
}

/// A unit's name in section [Install] with the specifiers that stand for the unit itself. The others
/// need a running systemd, and no link is better than a wrong one.
///
/// Returns  empty for one with another specifier, and for what is no name
std::string ExpandedName(const std::string& word, const std::string& unit) {
    const std::string bare = unit.substr(0, unit.rfind('.'));
    std::string name;
    for (std::size_t at = 0; at < word.size(); ++at) {
        if (word[at] != '%') {
            name += word[at];
            continue;
        }
        switch (++at < word.size() ? word[at] : '\0') {
        case 'n':
            name += unit;
            break;
        case 'N':
        case 'p':
            name += bare;
            break;
        case '%':
            name += '%';
            break;
        default:
            return "";
        }
    }
    return name.find('/') == std::string::npos && !name.starts_with('.') ? name : "";
}

bool Contains(const std::vector<std::string>& all, const std::string& one) {
    return std::find(all.begin(), all.end(), one) != all.end();
}

/// The names in a directory; none when it is missing.
std::vector<std::filesystem::directory_entry> EntriesOf(const std::string& directory) {
    std::error_code error;
    std::vector<std::filesystem::directory_entry> entries;
    std::filesystem::directory_iterator iterator(directory, error);
    for (; !error && iterator != std::filesystem::directory_iterator(); iterator.increment(error)) {
        entries.push_back(*iterator);
    }
    if (error && error.value() != ENOENT) {
        Require(static_cast<unsigned>(error.value()), directory);
    }
    return entries;
}

std::string LinkTarget(const std::string& path) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::read_symlink(path, error);
    return error ? std::string() : target.string(); // what is no link has no target
}

bool HoldsLinks(const std::string& directory) {
    return std::any_of(linkKeys.begin(), linkKeys.end(), [&](const LinkKey& kind) {
        return directory.ends_with(kind.ending);
    });
}

} // namespace

KUnitFiles::KUnitFiles(std::string rootDirectory, Notice takerOfNotices)
    : root(std::move(rootDirectory)),
      notice(std::move(takerOfNotices)) {}

void KUnitFiles::Write(const std::string& unit, const std::string& text) const {
    const std::string directory = root + ownDirectory;
    const std::string path = root + OwnPath(unit);
    // An image that is being built may not have it yet.
    Require(MakeDirectory(directory.c_str(), directoryMode, true), directory);
    ReportedFile report(path.c_str());
    KFileReplacement lock;
    Require(lock.Take(path.c_str()), path);
    FileIdentity written;
    Require(lock.Write(text, unitMode, written, report.isWritten), path);
}

void KUnitFiles::Remove(const std::string& unit) const {
    const std::string path = root + OwnPath(unit);
    const unsigned status = Unlink(path.c_str());
    if (status != ENOENT) {
        Require(status, path);
    }
}

std::string KUnitFiles::Find(const std::string& unit) const {
    for (const char* directory : unitDirectories) {
        std::string path = std::string(directory) + '/' + unit;
        if (Exists(path)) {
            return path;
        }
    }
    return "";
}

bool KUnitFiles::IsOurs(const std::string& unit) const {
    const std::string path = OwnPath(unit);
    struct stat status {};
    // A link is somebody else's way to provide a unit, wherever it leads to.
    return ::lstat((root + path).c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           IsOurUnitText(Read(path));
}

bool KUnitFiles::IsLink(const std::string& unit) const {
    struct stat status {};
    return ::lstat((root + OwnPath(unit)).c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

bool KUnitFiles::Exists(const std::string& path) const {
    struct stat status {};
    return ::lstat((root + path).c_str(), &status) == 0;
}

std::string KUnitFiles::Read(const std::string& path) const {
    std::string text;
    FileIdentity identity;
    Require(ReadFile((root + path).c_str(), text, identity), root + path);
    return text;
}

void KUnitFiles::Enable(const std::string& unit) const {
    std::vector<std::string> seen;
    EnableWithOthers(unit, seen);
}

void KUnitFiles::EnableWithOthers(const std::string& unit, std::vector<std::string>& seen) const {
    const std::string path = Find(unit);
    if (path.empty()) {
        const std::string reason = "there is no unit file " + unit;
        throw KServiceError(ServiceStatus::unknown, reason);
    }
    // systemd's sign for "never start this".
    const std::string text = LinkTarget(root + path) == "/dev/null" ? "" : Read(path);
    if (text.empty()) {
        const std::string reason = path + ": the unit is masked";
        throw KServiceError(ServiceStatus::failed, reason);
    }
    seen.push_back(unit);
    LayLinks(unit, path, text);
    for (const std::string& other : InstallNames(text, "Also", unit)) {
        if (!Contains(seen, other)) {
            EnableWithOthers(other, seen);
        }
    }
}

/// The names that a key of section [Install] lists.
std::vector<std::string>
KUnitFiles::InstallNames(std::string_view text, const char* key, const std::string& unit) const {
    std::vector<std::string> names;
    for (const std::string& word : InstallWords(text, key)) {
        std::string name = ExpandedName(word, unit);
        if (!name.empty()) {
            names.push_back(std::move(name));
        } else if (notice) {
            notice(unit + ": " + key + '=' + word + " is left out: it takes a running systemd");
        }
    }
    return names;
}

void KUnitFiles::LayLinks(const std::string& unit, const std::string& path, const std::string& text)
    const {
    for (const LinkKey& kind : linkKeys) {
        for (const std::string& target : InstallNames(text, kind.key, unit)) {
            const std::string directory = root + OwnPath(target) + kind.ending;
            Require(MakeDirectory(directory.c_str(), directoryMode, true), directory);
            const std::string link = directory + '/' + unit;
            Require(MakeLink(path.c_str(), link.c_str()), link);
        }
    }
    for (const std::string& alias : InstallNames(text, "Alias", unit)) {
        if (alias != unit) {
            LayAlias(alias, path);
        }
    }
}

void KUnitFiles::LayAlias(const std::string& alias, const std::string& path) const {
    const std::string link = root + OwnPath(alias);
    if (Exists(OwnPath(alias)) && LinkTarget(link) != path) {
        const std::string reason = link + ": another unit has this name already";
        throw KServiceError(ServiceStatus::foreign, reason);
    }
    Require(MakeLink(path.c_str(), link.c_str()), link);
}

void KUnitFiles::Disable(const std::string& unit) const {
    std::vector<std::string> seen;
    DisableWithOthers(unit, seen);
}

void KUnitFiles::DisableWithOthers(const std::string& unit, std::vector<std::string>& seen) const {
    seen.push_back(unit);
    const std::string path = Find(unit);
    const bool isMasked = path.empty() || LinkTarget(root + path) == "/dev/null";
    const std::string text = isMasked ? "" : Read(path);
    for (const auto& entry : EntriesOf(root + ownDirectory)) {
        const std::string name = entry.path().filename().string();
        const std::filesystem::path target = LinkTarget(entry.path().string());
        if (HoldsLinks(name)) {
            RemoveLinks(entry.path().string(), unit);
        } else if (name != unit && target.filename() == unit) {
            Require(Unlink(entry.path().c_str()), entry.path().string());
        }
    }
    for (const std::string& other : InstallNames(text, "Also", unit)) {
        if (!Contains(seen, other)) {
            DisableWithOthers(other, seen);
        }
    }
}

void KUnitFiles::RemoveLinks(const std::string& directory, const std::string& unit) const {
    const std::string link = directory + '/' + unit;
    if (LinkTarget(link).empty()) {
        return;
    }
    Require(Unlink(link.c_str()), link);
    const unsigned status = RemoveDirectory(directory.c_str());
    if (status != ENOTEMPTY && status != EEXIST) {
        Require(status, directory);
    }
}

} // namespace KSYS
