// SPDX-License-Identifier: MIT
#include "SetupRig.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <system_error>
#include <tuple>

#include <sys/stat.h>
#include <sys/wait.h>

namespace KTEST {

namespace fs = std::filesystem;

namespace {

/// Files that were not touched since are read once: there are many.
std::size_t DigestOf(const fs::path& path, const struct stat& status) {
    using Key = std::tuple<dev_t, ino_t, off_t, time_t, long>;
    static std::map<Key, std::size_t> known;
    const Key key(
        status.st_dev, status.st_ino, status.st_size, status.st_ctim.tv_sec, status.st_ctim.tv_nsec
    );
    if (const auto found = known.find(key); found != known.end()) {
        return found->second;
    }
    const std::size_t digest = std::hash<std::string>()(Slurp(path));
    known.emplace(key, digest);
    return digest;
}

std::string LineOf(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    std::array<char, 96> head{};
    std::snprintf(
        head.data(), head.size(), "%06o %u:%u ", status.st_mode, status.st_uid, status.st_gid
    );
    const std::string line = head.data() + path.string();
    return S_ISREG(status.st_mode)   ? line + " " + std::to_string(DigestOf(path, status))
           : S_ISLNK(status.st_mode) ? line + " -> " + fs::read_symlink(path).string()
                                     : line;
}

} // namespace

std::string Slurp(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file) {
        return {};
    }
    std::string bytes(static_cast<std::size_t>(file.tellg()), '\0');
    file.seekg(0);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
        text.replace(at, what.size(), by);
    }
    return text;
}

std::vector<std::string> MachineTree(const std::vector<std::string>& roots) {
    std::vector<std::string> lines;
    for (const std::string& root : roots) {
        if (!fs::exists(fs::symlink_status(root))) {
            lines.push_back("missing " + root);
            continue;
        }
        lines.push_back(LineOf(root));
        if (!fs::is_directory(root)) {
            continue;
        }
        for (auto entry = fs::recursive_directory_iterator(root);
             entry != fs::recursive_directory_iterator();
             ++entry) {
            if (entry->path() == "/var/log/journal") {
                entry.disable_recursion_pending();
            }
            lines.push_back(LineOf(entry->path()));
        }
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

std::vector<std::string> WholeMachine(const std::vector<std::string>& more) {
    std::vector<std::string> roots{"/etc", "/opt", "/var/lib", "/var/log"};
    roots.insert(roots.end(), more.begin(), more.end());
    return MachineTree(roots);
}

std::vector<std::string>
Changes(const std::vector<std::string>& before, const std::vector<std::string>& after) {
    std::vector<std::string> changes;
    const auto add = [&](const auto& from, const auto& without, const char* mark) {
        std::vector<std::string> lines;
        std::set_difference(
            from.begin(), from.end(), without.begin(), without.end(), std::back_inserter(lines)
        );
        for (const std::string& line : lines) {
            changes.push_back(mark + line);
        }
    };
    add(before, after, "-");
    add(after, before, "+");
    return changes;
}

SetupProgramTest::SetupProgramTest() {
    tree.Write("kit/product.ini", product);
    tree.Write("kit/lib/svc", "program", 0755);
    GivenScript();
}

SetupProgramTest::~SetupProgramTest() {
    Forget();
}

void SetupProgramTest::Forget() {
    fs::remove_all("/etc/setuptest");
    fs::remove_all("/var/lib/ins++/setuptest");
    fs::remove(setupLog);
    fs::remove(commandOutput);
    fs::remove("/run/ins++/setuptest.lock"); // it names the run that held it last
}

void SetupProgramTest::GivenScript(const std::string& more) {
    tree.Write(
        "kit/install.ini",
        "[install]\ndefaultPath.$os$=" + tree.Path("product") +
            "\ndirectory=create,$pathTargetBin$\ndirectory=create,$pathTargetConfig$\n"
            "profile=put,$pathTargetConfig$$iniFile$,General,A,1\n"
            "file=copy,svc,$pathSource$lib,$pathTargetBin$\n" +
            more +
            "directory=create,/etc/$serviceName$\n"
            "file=symlink,svc,$pathTargetBin$,/etc/$serviceName$,$serviceName$\n"
            "[remove]\nfile=delete,$serviceName$,/etc/$serviceName$\n"
            "directory=delete,/etc/$serviceName$\ndirectory=delete,$pathTargetBin$\n"
            "directory=delete,$pathTargetLin$\ndirectory=delete,$pathTargetConfig$\n"
            "directory=delete,$pathTarget$\n"
    );
}

std::string SetupProgramTest::Program() {
    return fs::canonical("/proc/self/exe").parent_path().string() + "/ins-setup";
}

SetupProgramTest::Outcome SetupProgramTest::Run(const std::string& line) {
    std::string command = Replaced(line, "SETUP", Program());
    command = Replaced(command, "KIT", tree.Path("kit"));
    command = Replaced(command, "TREE", tree.Path());
    const std::string out = tree.Path("out");
    const std::string err = tree.Path("err");
    const int status =
        std::system(("cd / && (" + command + "\n) > " + out + " 2> " + err).c_str()); // NOLINT
    return {WEXITSTATUS(status), Slurp(out), Slurp(err)};
}

SetupProgramTest::Outcome
SetupProgramTest::RunSetup(const std::string& action, const std::string& more) {
    return Run("SETUP " + action + " --kit KIT " + more);
}

} // namespace KTEST
