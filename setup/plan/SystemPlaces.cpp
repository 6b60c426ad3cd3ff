// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/SystemPlaces.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>

#include <sys/processes/ProgramRun.h>

namespace KSETUP {

namespace {

/// Directories that hold what many own (hier(7), file-hierarchy(7)). A directory of one's own below
/// them is fine.
constexpr std::array shared = std::to_array<std::string_view>({
    "/",
    "/bin",
    "/boot",
    "/etc",
    "/home",
    "/lib",
    "/lib32",
    "/lib64",
    "/libx32",
    "/media",
    "/mnt",
    "/opt",
    "/root",
    "/run",
    "/sbin",
    "/snap",
    "/srv",
    "/tmp",
    "/usr",
    "/usr/bin",
    "/usr/games",
    "/usr/include",
    "/usr/lib",
    "/usr/lib/pam.d",
    "/usr/lib/sysctl.d",
    "/usr/lib/sysusers.d",
    "/usr/lib/tmpfiles.d",
    "/usr/lib/udev",
    "/usr/lib32",
    "/usr/lib64",
    "/usr/libexec",
    "/usr/libx32",
    "/usr/local",
    "/usr/local/bin",
    "/usr/local/etc",
    "/usr/local/include",
    "/usr/local/lib",
    "/usr/local/sbin",
    "/usr/local/share",
    "/usr/local/src",
    "/usr/sbin",
    "/usr/share",
    "/usr/share/applications",
    "/usr/share/bash-completion",
    "/usr/share/bash-completion/completions",
    "/usr/share/dbus-1",
    "/usr/share/fonts",
    "/usr/share/icons",
    "/usr/share/locale",
    "/usr/share/mime",
    "/usr/share/pixmaps",
    "/usr/share/polkit-1",
    "/usr/share/zsh",
    "/usr/src",
    "/var",
    "/var/backups",
    "/var/cache",
    "/var/lib",
    "/var/local",
    "/var/lock",
    "/var/log",
    "/var/mail",
    "/var/opt",
    "/var/run",
    "/var/spool",
    "/var/tmp",
});

/// Nothing can be installed anywhere below: file systems of the kernel's own, and what belongs to
/// the package and service managers.
constexpr std::array closed = std::to_array<std::string_view>({
    "/dev",
    "/proc",
    "/sys",
    "/boot",
    "/lost+found",
    "/etc/systemd",
    "/usr/lib/modules",
    "/usr/lib/systemd",
    "/usr/share/doc",
    "/usr/share/man",
    "/var/lib/dpkg",
    "/var/lib/systemd",
});

/// Of the packages that most machines have, sorted.
constexpr std::array sharedInEtc = std::to_array<std::string_view>({
    "NetworkManager",
    "X11",
    "alternatives",
    "apparmor.d",
    "apt",
    "bash_completion.d",
    "binfmt.d",
    "ca-certificates",
    "cron.d",
    "cron.daily",
    "cron.hourly",
    "cron.monthly",
    "cron.weekly",
    "dbus-1",
    "default",
    "depmod.d",
    "dpkg",
    "environment.d",
    "fonts",
    "grub.d",
    "gss",
    "init.d",
    "insserv",
    "iproute2",
    "kernel",
    "ld.so.conf.d",
    "ldap",
    "logcheck",
    "logrotate.d",
    "modprobe.d",
    "modules-load.d",
    "network",
    "opt",
    "pam.d",
    "perl",
    "ppp",
    "profile.d",
    "python3",
    "rc0.d",
    "rc1.d",
    "rc2.d",
    "rc3.d",
    "rc4.d",
    "rc5.d",
    "rc6.d",
    "rcS.d",
    "rpm",
    "rsyslog.d",
    "security",
    "selinux",
    "skel",
    "ssh",
    "ssl",
    "sudoers.d",
    "sysconfig",
    "sysctl.d",
    "systemd",
    "sysusers.d",
    "terminfo",
    "tmpfiles.d",
    "udev",
    "ufw",
    "vim",
    "xdg",
    "yum.repos.d",
});

/// Paths in one question: the kernel limits the length of a command line.
constexpr std::ptrdiff_t mostAsked = 200;

/// The directories of libraries for one architecture, /usr/lib/x86_64-linux-gnu for instance.
bool IsMultiarch(const std::string& path) {
    const std::filesystem::path directory(path);
    return (directory.parent_path() == "/usr/lib" || directory.parent_path() == "/lib") &&
           directory.filename().string().find("-linux-") != std::string::npos;
}

/// A home directory itself; a product in one's own home is fine.
bool IsHome(const std::string& path) {
    return std::filesystem::path(path).parent_path() == "/home";
}

std::string AskPackages(std::vector<std::string> words, const std::vector<std::string>& paths) {
    words.insert(words.end(), paths.begin(), paths.end());
    std::string answer;
    return KSYS::ReadProgram(std::move(words), answer) == 0 ? answer : "";
}

/// Each line that dpkg-query(1) answers is "PACKAGE, PACKAGE: PATH".
std::vector<std::string> PathsOfDpkg(const std::vector<std::string>& paths) {
    const std::string answer = AskPackages({"dpkg-query", "--search"}, paths);
    std::vector<std::string> owned;
    std::copy_if(paths.begin(), paths.end(), std::back_inserter(owned), [&](const auto& path) {
        return answer.find(": " + path + "\n") != std::string::npos;
    });
    return owned;
}

/// It names no paths, and a path of several packages has several lines, so each is asked about; but
/// not where none has a package, which is the rule.
std::vector<std::string> PathsOfRpm(const std::vector<std::string>& paths) {
    const std::vector<std::string> question = {"rpm", "--query", "--queryformat", "=\n", "--file"};
    const auto isOwned = [](const std::string& answer) {
        return answer.starts_with("=\n") || answer.find("\n=\n") != std::string::npos;
    };
    std::vector<std::string> owned;
    if (isOwned(AskPackages(question, paths))) {
        std::copy_if(paths.begin(), paths.end(), std::back_inserter(owned), [&](const auto& path) {
            return isOwned(AskPackages(question, {path}));
        });
    }
    return owned;
}

} // namespace

bool IsSystemDirectory(const std::string& path, const std::string& service) {
    const bool isOwn = IsAtOrBelow(path, "/etc/" + service) && !service.empty();
    return (IsAtOrBelow(path, "/etc") && !isOwn) ||
           std::find(shared.begin(), shared.end(), path) != shared.end() || IsMultiarch(path) ||
           IsHome(path) || std::any_of(closed.begin(), closed.end(), [&](std::string_view one) {
               return IsAtOrBelow(path, one);
           });
}

bool LeadsToSystemDirectory(
    const std::string& path, const std::string& service, KRealDirectories& directories
) {
    const std::string written = NormalPath(path);
    if (IsSystemDirectory(written, service)) {
        return true;
    }
    if (!HasParentStep(path)) {
        return IsSystemDirectory(directories.Find(written), service);
    }
    // Behind a link ".." is another directory than the letters say.
    std::error_code unreadable; // then the written path is all there is to go by
    const std::filesystem::path real = std::filesystem::weakly_canonical(path, unreadable);
    return !unreadable && IsSystemDirectory(NormalPath(real), service);
}

bool IsSharedNameInEtc(const std::string& name) {
    return std::binary_search(sharedInEtc.begin(), sharedInEtc.end(), name);
}

std::map<std::string, std::string> FindPackageManagers(const std::vector<std::string>& paths) {
    std::map<std::string, std::string> managers;
    for (auto begin = paths.begin(); begin != paths.end();) {
        const auto end = begin + std::min(mostAsked, paths.end() - begin);
        const std::vector<std::string> asked(begin, end);
        for (const std::string& path : PathsOfDpkg(asked)) {
            managers.emplace(path, "dpkg");
        }
        for (const std::string& path : PathsOfRpm(asked)) {
            managers.emplace(path, "rpm");
        }
        begin = end;
    }
    return managers;
}

} // namespace KSETUP
