// SPDX-License-Identifier: MIT
#include "SetupWorld.h"

#include "../support/TemporaryTree.h"
#include "Calls.h"
#include "CaseFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <system_error>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace KTEST {

namespace {

namespace fs = std::filesystem;

const fs::path base = "/run/inspp-cases";
const fs::path world = "/run/inspp-cases/world";
constexpr const char* journal = "/var/log/journal";
constexpr std::size_t longestText = 300;            // a record is told as it is
constexpr std::uintmax_t mostBytesRead = 1U << 20U; // sparse files may be of any size

void Mount(const fs::path& what, const fs::path& where, unsigned long flags) {
    Check(::mount(what.c_str(), where.c_str(), nullptr, flags, nullptr), "mount " + where.string());
}

void MountNew(const char* type, const fs::path& where, const char* options) {
    Check(::mount("none", where.c_str(), type, 0, options), "mount " + where.string());
}

void MakeDirectory(const std::string& path, mode_t mode) {
    fs::create_directories(world / path);
    Check(::chmod((world / path).c_str(), mode), path);
}

/// The system's own directories, which no case changes.
void LaySystem() {
    for (const char* name : {"bin", "sbin", "lib", "lib32", "lib64", "libx32"}) {
        const fs::path original = fs::path("/") / name;
        if (fs::is_symlink(original)) {
            fs::copy_symlink(original, world / name);
        }
    }
    for (const char* name : {"usr", "dev", "sys", "run"}) {
        MakeDirectory(name, 0755);
        Mount(fs::path("/") / name, world / name, MS_BIND | MS_REC);
    }
    MakeDirectory("proc", 0555);
    MountNew("proc", world / "proc", nullptr);
    MakeDirectory("run/ins++", 0700);
    MountNew("tmpfs", world / "run/ins++", "mode=0700"); // locks of its own
}

/// What programs read there; nothing of the machine's own configuration.
void LayConfiguration() {
    MakeDirectory("etc/systemd/system", 0755);
    MakeDirectory("etc/alternatives", 0755); // names such as awk lead there
    Mount("/etc/alternatives", world / "etc/alternatives", MS_BIND);
    for (const char* name :
         {"group",
          "hostname",
          "ld.so.cache",
          "localtime",
          "machine-id",
          "nsswitch.conf",
          "passwd"}) {
        const fs::path original = fs::path("/etc") / name;
        if (fs::exists(original)) {
            fs::copy_file(original, world / "etc" / name);
        }
    }
}

std::string LineOf(const fs::path& path) {
    struct stat status {};
    Check(::lstat(path.c_str(), &status), path);
    TreeLine line;
    line.path = path;
    line.mode = status.st_mode & 07777U;
    line.owner = status.st_uid;
    line.group = status.st_gid;
    if (S_ISLNK(status.st_mode)) {
        line.kind = 'l';
        line.target = fs::read_symlink(path);
    } else if (S_ISREG(status.st_mode)) {
        line.kind = 'f';
        if (static_cast<std::uintmax_t>(status.st_size) > mostBytesRead) {
            line.digest = std::to_string(status.st_size) + " bytes";
        } else {
            std::ifstream file(path, std::ios::binary);
            line.bytes.assign(std::istreambuf_iterator<char>(file), {});
        }
    } else {
        line.kind = S_ISDIR(status.st_mode) ? 'd' : S_ISFIFO(status.st_mode) ? 'p' : '?';
    }
    return line.Listed(longestText);
}

} // namespace

void PrepareWorlds(const std::string& programs) {
    const fs::path from(programs);
    Check(::unshare(CLONE_NEWNS), "unshare");
    Check(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount /");
    for (const fs::path& where : {world, base / "bin", base / "lib", base / "share"}) {
        fs::create_directories(where);
    }
    Mount(from, base / "bin", MS_BIND);
    Mount(from.parent_path() / "lib", base / "lib", MS_BIND);
    Mount(from.parent_path() / "share", base / "share", MS_BIND); // texts in other languages
}

int ForkIntoWorld() {
    // This process itself stays where it is: only its children are in the new one.
    Check(::unshare(CLONE_NEWPID), "unshare");
    const pid_t child = ::fork();
    Check(child, "fork");
    return child;
}

void EnterWorld() {
    Check(::unshare(CLONE_NEWNS), "unshare");
    MountNew("tmpfs", world, "mode=0755,size=4g");
    LaySystem();
    LayConfiguration();
    for (const char* name : {"home", "mnt", "opt", "srv", "var/cache", "var/lib", "var/log"}) {
        MakeDirectory(name, 0755);
    }
    MakeDirectory("root", 0700);
    MakeDirectory("tmp", 01777);
    MakeDirectory("var/tmp", 01777);
    if (fs::is_directory(journal)) {
        MakeDirectory("var/log/journal", 0755);
        Mount(journal, world / "var/log/journal", MS_BIND);
    }
    // Onto itself: the former root lies below the new one, and is let go there.
    Check(::chdir(world.c_str()), world);
    Check(::syscall(SYS_pivot_root, ".", "."), "pivot_root");
    Check(::umount2(".", MNT_DETACH), "umount");
    Check(::chdir(workDirectory), workDirectory);
    ::umask(022);
}

std::map<std::string, std::string> ListWorld() {
    static const std::set<std::string> others{
        "/dev", "/etc/alternatives", "/proc", "/run", "/sys", "/usr", journal};
    std::map<std::string, std::string> lines;
    for (auto entry = fs::recursive_directory_iterator("/");
         entry != fs::recursive_directory_iterator();
         ++entry) {
        const std::string path = entry->path();
        if (others.contains(path)) {
            entry.disable_recursion_pending();
        } else {
            lines.emplace(path, LineOf(path));
        }
    }
    return lines;
}

} // namespace KTEST
