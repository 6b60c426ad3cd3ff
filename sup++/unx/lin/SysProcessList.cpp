// SPDX-License-Identifier: MIT
#include <sup++/unx/lin/SysFile.h>
#include <sup++/unx/lin/SysProcessList.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <memory>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace KSUP::Sys {

namespace {

constexpr std::string_view deletedMark = " (deleted)"; // behind a path in /proc/N/exe
constexpr unsigned long kernelThreadFlag = 0x00200000; // PF_KTHREAD, field 9 of /proc/N/stat

struct DirectoryCloser {
    void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};

std::string ReadSmallFile(const std::string& path) {
    std::string bytes;
    const KDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen() || ReadAll(file.Get(), bytes) != 0) {
        bytes.clear();
    }
    return bytes;
}

std::string ReadLink(const std::string& path) {
    std::string target(PATH_MAX, '\0');
    const ssize_t bytes = ::readlink(path.c_str(), target.data(), target.size());
    target.resize(bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
    return target;
}

std::string_view LastComponent(std::string_view path) noexcept {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

/// Whether two paths name the same file, links followed.
bool IsSameFile(const std::string& left, const std::string& right) noexcept {
    struct stat one {};
    struct stat other {};
    return ::stat(left.c_str(), &one) == 0 && ::stat(right.c_str(), &other) == 0 &&
           one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

std::optional<ProcessEntry> ReadEntry(pid_t id) {
    const std::string text = ReadSmallFile("/proc/" + std::to_string(id) + "/stat");
    const std::size_t nameEnd = text.rfind(')'); // the name in front may hold anything
    if (nameEnd == std::string::npos) {
        return std::nullopt;
    }
    std::istringstream fields(text.substr(nameEnd + 1));
    ProcessEntry entry;
    entry.id = id;
    char state = 0;
    long ignored = 0;
    unsigned long flags = 0;
    fields >> state >> entry.parent >> entry.group >> ignored >> ignored >> ignored >> flags;
    entry.dead = state == 'Z' || state == 'X';
    entry.kernel = (flags & kernelThreadFlag) != 0;
    return entry;
}

std::vector<std::string> ReadArguments(const std::string& proc) {
    const std::string bytes = ReadSmallFile(proc + "/cmdline");
    std::vector<std::string> arguments;
    for (std::size_t at = 0; at < bytes.size(); at += arguments.back().size() + 1) {
        arguments.emplace_back(bytes.c_str() + at);
    }
    return arguments;
}

/// The interpreter that a script's first line names; empty for any other file.
std::string InterpreterOf(const std::string& script) {
    std::string line(256, '\0'); // as much as the kernel reads (BINPRM_BUF_SIZE)
    const KDescriptor file(::open(script.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    const ssize_t bytes = file.IsOpen() ? ::read(file.Get(), line.data(), line.size()) : -1;
    line.resize(bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
    if (!line.starts_with("#!")) {
        return {};
    }
    std::istringstream words(line.substr(2, line.find('\n') - 2));
    std::string interpreter;
    words >> interpreter;
    if (LastComponent(interpreter) != "env") {
        return interpreter;
    }
    for (std::string word; words >> word;) { // env runs the first word that is no option
        if (!word.starts_with('-') && word.find('=') == std::string::npos) {
            return word;
        }
    }
    return {};
}

/// Compares running processes with one program.
class Matcher {
  public:
    explicit Matcher(const std::string& wanted)
        : program(wanted),
          isPath(wanted.find('/') != std::string::npos) {
        if (isPath) {
            const std::unique_ptr<char, decltype(&std::free)> real(
                ::realpath(wanted.c_str(), nullptr), &std::free
            );
            resolved = real != nullptr ? real.get() : wanted;
        }
    }

    bool Matches(pid_t id) const {
        const std::string proc = "/proc/" + std::to_string(id);
        std::string executable = ReadLink(proc + "/exe");
        if (executable.empty()) {
            return false;
        }
        const bool deleted = executable.ends_with(deletedMark);
        if (deleted) {
            executable.resize(executable.size() - deletedMark.size());
        }
        return IsProgram(proc, executable, deleted) || IsScript(proc, executable);
    }

  private:
    bool IsProgram(const std::string& proc, const std::string& executable, bool deleted) const {
        if (!isPath) {
            return LastComponent(executable) == program;
        }
        // A program that was replaced has the old file's identity and the new one's name. The name
        // counts only where it means the same: not in a container with its own root.
        return IsSameFile(proc + "/exe", program) ||
               (deleted && executable == resolved && IsSameFile(proc + "/root", "/proc/self/root"));
    }

    bool IsScript(const std::string& proc, const std::string& executable) const {
        const std::vector<std::string> arguments = ReadArguments(proc);
        const auto script = std::find_if(
            arguments.begin() + (arguments.empty() ? 0 : 1),
            arguments.end(),
            [](const std::string& one) { return !one.starts_with('-'); }
        );
        if (script == arguments.end()) {
            return false;
        }
        // Seen from where the process stands.
        const std::string path =
            script->starts_with('/') ? proc + "/root" + *script : proc + "/cwd/" + *script;
        const bool named = isPath ? IsSameFile(path, program) : LastComponent(*script) == program;
        return named && IsInterpreter(InterpreterOf(path), proc, executable);
    }

    /// An editor that has the script open is not its interpreter.
    static bool IsInterpreter(
        const std::string& interpreter, const std::string& proc, const std::string& executable
    ) {
        if (interpreter.empty() || interpreter.find('/') != std::string::npos) {
            return !interpreter.empty() && IsSameFile(proc + "/root" + interpreter, proc + "/exe");
        }
        const auto found = [&](const char* directory) {
            return IsSameFile(proc + "/root" + directory + interpreter, proc + "/exe");
        };
        return LastComponent(executable) == interpreter || found("/usr/local/bin/") ||
               found("/usr/bin/") || found("/bin/");
    }

    std::string program;
    std::string resolved;
    bool isPath;
};

/// This process and those it descends from.
std::vector<pid_t> OwnLine(const std::vector<ProcessEntry>& all) {
    std::vector<pid_t> line;
    pid_t next = ::getpid();
    while (next > 0 && line.size() <= all.size()) {
        line.push_back(next);
        const auto entry = std::find_if(all.begin(), all.end(), [&](const ProcessEntry& one) {
            return one.id == next;
        });
        next = entry != all.end() ? entry->parent : 0;
    }
    return line;
}

} // namespace

std::vector<ProcessEntry> ListProcesses() {
    std::vector<ProcessEntry> all;
    const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir("/proc"));
    while (const dirent* entry = directory != nullptr ? ::readdir(directory.get()) : nullptr) {
        const std::string_view name(entry->d_name);
        pid_t id = 0;
        const auto number = std::from_chars(name.data(), name.data() + name.size(), id);
        if (number.ec == std::errc() && number.ptr == name.data() + name.size()) {
            if (const std::optional<ProcessEntry> read = ReadEntry(id)) {
                all.push_back(*read);
            }
        }
    }
    return all;
}

std::vector<HeldProcess> FindProcesses(const std::string& program) {
    const std::vector<ProcessEntry> all = ListProcesses();
    const std::vector<pid_t> spared = OwnLine(all);
    const Matcher matcher(program);
    std::vector<HeldProcess> found;
    for (const ProcessEntry& one : all) {
        const bool mayEnd = one.id != 1 && !one.kernel && !one.dead &&
                            std::find(spared.begin(), spared.end(), one.id) == spared.end();
        if (!mayEnd) {
            continue;
        }
        // Held before it is looked at: if the number is another's by then, the signal goes nowhere.
        KDescriptor held(static_cast<int>(::syscall(SYS_pidfd_open, one.id, 0)));
        if (held.IsOpen() && matcher.Matches(one.id)) {
            found.push_back({one.id, std::move(held), program});
        }
    }
    return found;
}

unsigned Signal(const HeldProcess& process, int signal) noexcept {
    const long result =
        ::syscall(SYS_pidfd_send_signal, process.descriptor.Get(), signal, nullptr, 0);
    return result == 0 || errno == ESRCH ? 0 : static_cast<unsigned>(errno);
}

void WaitForEnd(std::vector<HeldProcess>& processes, unsigned timeoutMs) noexcept {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    // One after the other: the time is up for all at once, and those that ended do not wait.
    std::erase_if(processes, [&](const HeldProcess& one) {
        while (true) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
            pollfd ended{one.descriptor.Get(), POLLIN, 0};
            const int ready = ::poll(&ended, 1, left > 0 ? static_cast<int>(left) : 0);
            if (ready >= 0 || errno != EINTR) {
                return ready > 0;
            }
        }
    });
}

} // namespace KSUP::Sys
