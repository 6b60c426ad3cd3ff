// SPDX-License-Identifier: MIT
#include <cerrno>
#include <csignal>
#include <string_view>

#include <fcntl.h>
#include <sched.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/processes/PrivateRoot.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace KSYS {

namespace {

constexpr unsigned long inMemory = MS_NOSUID;

unsigned Answer(int result) noexcept {
    return result == 0 ? 0U : static_cast<unsigned>(errno);
}

/// The steps of entering a root, each done only where those before it were. The working directory is
/// the root in between, which paths here begin at.
class RootMaker {
  public:
    explicit RootMaker(const std::string& directory) : root(directory) {}

    const FailedStep& GetFailed() const noexcept { return failed; }

    /// A mount can become the root of all others, a directory cannot.
    void BeginAtRoot() {
        Do("", [&] { return Mount(root.c_str(), root.c_str(), nullptr, MS_BIND | MS_REC); });
        Do("", [&] { return Answer(::chdir(root.c_str())); });
    }

    /// Over a directory of the root itself: what a link leads to may be outside.
    void MountOver(const char* name, const char* type, unsigned long flags, const char* options) {
        Do(name, [&] {
            KDescriptor directory;
            if (const unsigned status = OpenDirectoryEntry(name, directory); status != 0) {
                return status == ELOOP ? static_cast<unsigned>(ENOTDIR) : status;
            }
            unsigned status = Answer(::fchdir(directory.Get()));
            if (status == 0) {
                status = Mount(type, ".", type, flags, options);
            }
            return status != 0 ? status : Answer(::chdir(root.c_str()));
        });
    }

    /// With those above it.
    void MakeDirectories(const std::string& name) {
        constexpr unsigned open = 0755;
        for (std::size_t end = 0; end != std::string::npos;) {
            end = name.find('/', end + 1);
            const std::string one = name.substr(0, end);
            Do(one, [&] {
                const unsigned status = MakeDirectoryEntry(one, open);
                return status == EEXIST ? 0U : status;
            });
        }
    }
    void MakePlainFile(const std::string& name) {
        Do(name, [&] {
            KDescriptor file;
            return MakeFile(name, file);
        });
    }
    void MakeLink(const char* target, const std::string& name) {
        Do(name, [&] { return MakeLinkEntry(target, name); });
    }

    /// What the path names is in memory here, or the kernel's own, so no link is on the way.
    void Bind(const std::string& source, const std::string& name, unsigned long flags = 0) {
        Do(name, [&] { return Mount(source.c_str(), name.c_str(), nullptr, MS_BIND | flags); });
    }
    void MakeReadOnly(const std::string& name) {
        Do(name, [&] {
            struct statvfs status {};
            if (::statvfs(name.c_str(), &status) != 0) {
                return static_cast<unsigned>(errno);
            }
            // What a mount forbids besides has to be said again.
            const unsigned long kept = status.f_flag & (ST_NOSUID | ST_NODEV | ST_NOEXEC);
            return Mount(nullptr, name.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | kept);
        });
    }
    void ShowDevice(const std::string& name) {
        const std::string path = "dev/" + name;
        MakePlainFile(path);
        Bind("/" + path, path);
    }

    /// In the place of the former root, rather than beside it: there is no way back up.
    void EndAtRoot() {
        Do("", [&] { return Mount(".", "/", nullptr, MS_MOVE); });
        Do("", [&] { return Answer(::chroot(".")); });
        Do("", [&] { return Answer(::chdir("/")); });
    }

  private:
    template <class Step>
    void Do(std::string_view name, const Step& step) {
        if (failed.error == 0) {
            failed.error = step();
            failed.path = root + (name.empty() ? "" : "/") + std::string(name);
        }
    }

    static unsigned Mount(
        const char* source,
        const char* target,
        const char* type,
        unsigned long flags,
        const char* options = nullptr
    ) noexcept {
        return Answer(::mount(source, target, type, flags, options));
    }

    const std::string& root;
    FailedStep failed;
};

void ShowAll(RootMaker& maker, const std::vector<ShownEntry>& shown) {
    const std::string place = std::string(privateRootPlace).substr(1);
    maker.MakeDirectories(place);
    for (const ShownEntry& one : shown) {
        const std::string name = place + one.source;
        if (one.isDirectory) {
            maker.MakeDirectories(name);
        } else {
            maker.MakeDirectories(name.substr(0, name.rfind('/')));
            maker.MakePlainFile(name);
        }
        maker.Bind(one.source, name, MS_REC);
        if (one.isReadOnly) {
            maker.MakeReadOnly(name);
        }
    }
}

void MakeDevices(RootMaker& maker) {
    maker.MountOver("dev", "tmpfs", inMemory | MS_NOEXEC, "mode=755,size=64k");
    for (const char* device : {"null", "zero", "full", "random", "urandom", "tty"}) {
        maker.ShowDevice(device);
    }
    maker.MakeLink("/proc/self/fd", "dev/fd");
    maker.MakeLink("/proc/self/fd/0", "dev/stdin");
    maker.MakeLink("/proc/self/fd/1", "dev/stdout");
    maker.MakeLink("/proc/self/fd/2", "dev/stderr");
}

} // namespace

unsigned SeparateProcesses() noexcept {
    return Answer(::unshare(CLONE_NEWPID));
}

unsigned ForkProcess(pid_t& result) noexcept {
    result = ::fork();
    return result >= 0 ? 0U : static_cast<unsigned>(errno);
}

FailedStep EnterPrivateRoot(const std::string& directory, const std::vector<ShownEntry>& shown) {
    // A parent that has ended already leaves a run that comes to its own end.
    unsigned failed = Answer(::prctl(PR_SET_PDEATHSIG, SIGKILL));
    if (failed == 0) {
        failed = Answer(::unshare(CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWUTS));
    }
    if (failed != 0) {
        return {failed, ""};
    }
    // EINVAL where the root is no mount, so that mounts would be seen outside.
    if (const unsigned shared =
            Answer(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr))) {
        return {shared, "/"};
    }
    RootMaker maker(directory);
    maker.BeginAtRoot();
    maker.MountOver("run", "tmpfs", inMemory | MS_NODEV, "mode=755");
    ShowAll(maker, shown);
    maker.MountOver("proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
    maker.Bind(directory + "/proc/sys", "proc/sys"); // the kernel's settings are the host's
    maker.MakeReadOnly("proc/sys");
    MakeDevices(maker);
    maker.EndAtRoot();
    return maker.GetFailed();
}

unsigned ShowDirectory(const char* source, const char* target) noexcept {
    return Answer(::mount(source, target, nullptr, MS_BIND, nullptr));
}

} // namespace KSYS
