// SPDX-License-Identifier: MIT
#include "KDiskMachine.h"

#include "Files.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <system_error>

#include <sys/mount.h>
#include <sys/stat.h>

namespace KSWEEP {

namespace {

namespace fs = std::filesystem;

constexpr std::array<const char*, 6> boundPlaces = {
    "/opt", "/etc", "/var/lib", "/var/log", "/srv/elsewhere", "/usr/lib/sysusers.d"};

/// Where runs leave something that later ones read.
constexpr std::array<const char*, 10> lookedPlaces = {
    "/opt",
    "/etc/sweep",
    "/etc/systemd/system",
    "/srv/elsewhere",
    "/usr/lib/sysusers.d",
    "/var/lib/ins++",
    "/etc/passwd",
    "/etc/group",
    "/etc/shadow",
    "/etc/gshadow"};

std::string LineOf(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    std::string line = path.string() + "\n" + std::to_string(status.st_mode) + " " +
                       std::to_string(status.st_uid) + " " + std::to_string(status.st_gid) + "\n";
    if (S_ISLNK(status.st_mode)) {
        line += fs::read_symlink(path).string();
    } else if (S_ISREG(status.st_mode)) {
        line += ReadSteady(path);
    }
    return line + "\n";
}

} // namespace

KDiskMachine::KDiskMachine(const KMachineState& itsMachine, KLayout itsLayout)
    : machine(itsMachine),
      layout(itsLayout) {
    const unsigned count = layout == KLayout::Together ? 1 : 2;
    for (unsigned number = 0; number < count; ++number) {
        disks.push_back(std::make_unique<KDisk>(number, "/mnt/cut/" + std::to_string(number)));
    }
}

KDiskMachine::~KDiskMachine() {
    try {
        Stop();
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): it is thrown away
    }
}

std::string KDiskMachine::RootOf(const std::string& place) const {
    return disks[layout == KLayout::Apart && place.starts_with("/opt") ? 1 : 0]->GetRoot();
}

const KDisksContent& KDiskMachine::EmptyOf(const KFileSystem& fileSystem) {
    const auto [found, isNew] = empty.try_emplace(fileSystem.name);
    if (isNew) {
        for (const auto& disk : disks) {
            disk->Format(fileSystem);
            disk->Mount(fileSystem);
        }
        FillEmpty();
        Stop();
        found->second = Read({});
    }
    return found->second;
}

/// What the programs that runs call need, without the product.
void KDiskMachine::FillEmpty() const {
    std::string line = "true";
    for (const char* place : boundPlaces) {
        line += " && mkdir -p " + RootOf(place) + place;
    }
    const std::string root = RootOf("/etc");
    line +=
        " && mkdir -p " + root + "/var/lib/dpkg/info && : >" + root +
        "/var/lib/dpkg/status && cp -a /usr/lib/sysusers.d/. " + root +
        "/usr/lib/sysusers.d && rm -f " + root +
        "/usr/lib/sysusers.d/sweep.conf && cd /etc && find . -maxdepth 1 -type f -exec cp -a {} " +
        root + "/etc \\; && for one in default ins++ ld.so.conf.d pam.d ssl/openssl.cnf; do " +
        "[ ! -e $one ] || cp -a --parents $one " + root + "/etc || exit 1; done";
    Shell(line);
}

KDisksContent KDiskMachine::ContentOf(const KFileSystem& fileSystem, const std::string& state) {
    const KDisksContent& former = EmptyOf(fileSystem);
    for (std::size_t at = 0; at < disks.size(); ++at) {
        disks[at]->Write(former[at]);
        disks[at]->Mount(fileSystem);
    }
    const std::string kept = machine.CopyOf(state);
    std::string line = "cd " + kept;
    for (const char* place : boundPlaces) {
        const std::string inner = std::string(place).substr(1);
        line += " && if [ -e " + inner + " ]; then cp -a " + inner + "/. " + RootOf(place) + place +
                "; fi";
    }
    Shell(line);
    Stop();
    return Read(former);
}

void KDiskMachine::Start(const KFileSystem& fileSystem, const KDisksContent& content) {
    for (std::size_t at = 0; at < disks.size(); ++at) {
        disks[at]->Write(content[at]);
        disks[at]->Mount(fileSystem);
    }
    Bind();
}

void KDiskMachine::Bind() {
    for (const char* place : boundPlaces) {
        const std::string source = RootOf(place) + place;
        if (::mount(source.c_str(), place, nullptr, MS_BIND, nullptr) != 0) {
            throw std::system_error(errno, std::generic_category(), "bind " + source);
        }
        bound.emplace_back(place);
    }
}

void KDiskMachine::Stop() {
    for (; !bound.empty(); bound.pop_back()) {
        if (::umount(bound.back().c_str()) != 0) {
            throw std::system_error(errno, std::generic_category(), "umount " + bound.back());
        }
    }
    for (const auto& disk : disks) {
        disk->Unmount();
    }
}

std::string KDiskMachine::CountWrites() const {
    std::string all;
    for (const auto& disk : disks) {
        all += disk->CountWrites() + " ";
    }
    return all;
}

KDisksContent KDiskMachine::Read(const KDisksContent& former) const {
    KDisksContent content;
    for (std::size_t at = 0; at < disks.size(); ++at) {
        content.push_back(disks[at]->Read(at < former.size() ? former[at] : KDiskContent()));
    }
    return content;
}

std::string KDiskMachine::Look() const {
    std::map<std::string, std::string> lines; // directories are read in any order
    for (const char* place : lookedPlaces) {
        const auto status = fs::symlink_status(place);
        if (!fs::exists(status)) {
            continue;
        }
        lines[place] = LineOf(place);
        if (fs::is_directory(status)) {
            for (const auto& entry : fs::recursive_directory_iterator(place)) {
                lines[entry.path()] = LineOf(entry.path());
            }
        }
    }
    std::string all;
    for (const auto& one : lines) {
        all += one.second;
    }
    return std::to_string(all.size()) + " " + std::to_string(std::hash<std::string>()(all));
}

} // namespace KSWEEP
