// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
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
#include <sys/Retry.h>
#include <sys/files/FileCalls.h>
#include <sys/processes/ProcessList.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace KSYS {

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

std::string LinkTarget(const std::string& path) {
    std::string target(PATH_MAX, '\0');
    const ssize_t bytes = ::readlink(path.c_str(), target.data(), target.size());
    target.resize(bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
    return target;
}

/// The directory that holds a path's last component.
std::string DirectoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash > 0 ? slash : 1);
}

std::string_view LastComponent(std::string_view path) noexcept {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

/// Whether two paths name the same file, links followed.
bool LeadToSameFile(const std::string& left, const std::string& right) noexcept {
    struct stat one {};
    struct stat other {};
    return ::stat(left.c_str(), &one) == 0 && ::stat(right.c_str(), &other) == 0 &&
           one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// The path without links, as far as there is something.
std::string Resolve(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(
        ::realpath(path.c_str(), nullptr), &std::free
    );
    const std::string directory = DirectoryOf(path);
    if (real != nullptr || directory == path) {
        return real != nullptr ? real.get() : path;
    }
    const std::string resolved = Resolve(directory);
    return (resolved == "/" ? resolved : resolved + '/') + std::string(LastComponent(path));
}

/// The names of a directory that are numbers.
///
/// Returns  0 or errno
unsigned ListNumbers(const std::string& path, std::vector<pid_t>& numbers) {
    const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir(path.c_str()));
    if (directory == nullptr) {
        return static_cast<unsigned>(errno);
    }
    while (true) {
        errno = 0;
        const dirent* entry = ::readdir(directory.get());
        if (entry == nullptr) {
            return static_cast<unsigned>(errno);
        }
        const std::string_view name(entry->d_name);
        pid_t number = 0;
        const auto read = std::from_chars(name.data(), name.data() + name.size(), number);
        if (read.ec == std::errc() && read.ptr == name.data() + name.size()) {
            numbers.push_back(number);
        }
    }
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
    unsigned long flags = 0;
    long threads = 0;
    std::string ignored;
    fields >> state >> entry.parent >> entry.group >> ignored >> ignored >> ignored >> flags;
    for (int field = 10; field < 20; ++field) {
        fields >> ignored;
    }
    fields >> threads;
    // The first thread may have ended before the others.
    entry.dead = (state == 'Z' || state == 'X') && threads <= 1;
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
    const KDescriptor file(Retry([&] {
        return ::open(script.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    }));
    const ssize_t bytes = Retry([&] {
        return file.IsOpen() ? ::read(file.Get(), line.data(), line.size()) : ssize_t{0};
    });
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

/// Shells run the file that is their first operand, whatever its first line says.
bool IsShell(std::string_view name) noexcept {
    constexpr std::array<std::string_view, 8> shells{
        "ash", "bash", "dash", "ksh", "ksh93", "mksh", "sh", "zsh"};
    return std::find(shells.begin(), shells.end(), name) != shells.end();
}

bool IsRegularFile(const std::string& path) noexcept {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

/// One running process, by what proc(5) tells of it.
class Running {
  public:
    explicit Running(pid_t id)
        : proc("/proc/" + std::to_string(id)),
          executable(LinkTarget(proc + "/exe")) {
        if (executable.empty()) {
            UseLivingThread();
        }
        // A file may also be called so.
        deleted = executable.ends_with(deletedMark) &&
                  !LeadToSameFile(InItsView(executable), proc + "/exe");
        if (deleted) {
            executable.resize(executable.size() - deletedMark.size());
        }
    }

    std::string ExecutableFile() const { return proc + "/exe"; }
    const std::string& ExecutablePath() const noexcept { return executable; }
    bool IsDeleted() const noexcept { return deleted; }

    /// A path as the process sees it, which may be in a container or elsewhere by now.
    std::string InItsView(const std::string& path) const {
        return proc + (path.starts_with('/') ? "/root" : "/cwd/") + path;
    }

    /// The script that it interprets, as it was called; empty for any other program.
    std::string Script() const {
        const std::vector<std::string> arguments = ReadArguments(proc);
        const auto operand = std::find_if(
            arguments.begin() + (arguments.empty() ? 0 : 1),
            arguments.end(),
            [](const std::string& one) { return !one.starts_with('-'); }
        );
        const bool isScript = operand != arguments.end() && IsRegularFile(InItsView(*operand)) &&
                              IsInterpreterOf(InItsView(*operand), arguments.front());
        return isScript ? *operand : std::string();
    }

  private:
    /// Where the first thread has ended before the others, only theirs tell what is run.
    void UseLivingThread() {
        const std::string tasks = proc + "/task/";
        std::vector<pid_t> threads;
        static_cast<void>(ListNumbers(tasks, threads)); // none when it has ended meanwhile
        for (const pid_t thread : threads) {
            const std::string one = tasks + std::to_string(thread);
            if (executable = LinkTarget(one + "/exe"); !executable.empty()) {
                proc = one;
                return;
            }
        }
    }

    /// An editor that has the script open is not its interpreter.
    bool IsInterpreterOf(const std::string& script, std::string_view calledAs) const {
        if (IsShell(LastComponent(executable))) {
            return true;
        }
        const std::string interpreter = InterpreterOf(script);
        const std::string_view name = LastComponent(interpreter);
        // One file may be many programs.
        const bool isCalled =
            LastComponent(calledAs) == name || LastComponent(calledAs) == LastComponent(executable);
        if (interpreter.empty() || !isCalled) {
            return false;
        }
        const auto isExecutable = [&](const std::string& path) {
            return LeadToSameFile(InItsView(path), proc + "/exe");
        };
        if (name != interpreter) {
            return isExecutable(interpreter);
        }
        return LastComponent(executable) == name || isExecutable("/usr/local/bin/" + interpreter) ||
               isExecutable("/usr/bin/" + interpreter) || isExecutable("/bin/" + interpreter);
    }

    std::string proc;
    std::string executable;
    bool deleted = false;
};

/// Compares running processes with one program.
class Matcher {
  public:
    explicit Matcher(const std::string& wanted)
        : program(wanted),
          isPath(wanted.find('/') != std::string::npos) {
        if (isPath) {
            resolved = Resolve(wanted);
            directory = DirectoryOf(resolved);
            struct stat ignored {};
            while (directory != "/" && ::stat(directory.c_str(), &ignored) != 0) {
                directory = DirectoryOf(directory);
            }
        }
    }

    bool Matches(pid_t id) const {
        const Running running(id);
        return !running.ExecutablePath().empty() && (IsProgram(running) || IsScript(running));
    }

  private:
    bool IsProgram(const Running& running) const {
        if (!isPath) {
            return LastComponent(running.ExecutablePath()) == program;
        }
        // A program that was replaced has the old file's identity and the new one's name. The name
        // counts only where it means the same: not in a container with files of its own.
        return LeadToSameFile(running.ExecutableFile(), program) ||
               (running.IsDeleted() && running.ExecutablePath() == resolved &&
                LeadToSameFile(running.InItsView(directory), directory));
    }

    bool IsScript(const Running& running) const {
        const std::string script = running.Script();
        return isPath ? !script.empty() && LeadToSameFile(running.InItsView(script), program)
                      : LastComponent(script) == program;
    }

    std::string program;
    bool isPath;
    std::string resolved;  // of a path: without links
    std::string directory; // the one that holds it, or the next one above that there is
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

unsigned ListProcesses(std::vector<ProcessEntry>& all) {
    std::vector<pid_t> ids;
    const unsigned status = ListNumbers("/proc", ids);
    for (const pid_t id : ids) {
        if (const std::optional<ProcessEntry> read = ReadEntry(id)) {
            all.push_back(*read);
        }
    }
    // Without this very process it is no list, but an empty directory.
    return status == 0 && all.empty() ? ENOENT : status;
}

unsigned OpenProcess(pid_t id, KDescriptor& process) noexcept {
    process.Reset(static_cast<int>(::syscall(SYS_pidfd_open, id, 0))); // glibc 2.35 has no name
    // EINVAL: it is the number of a group only, whose first process has ended.
    const bool isGone = !process.IsOpen() && (errno == ESRCH || errno == EINVAL);
    return process.IsOpen() || isGone ? 0 : static_cast<unsigned>(errno);
}

bool EndsWithin(const KDescriptor& process, std::chrono::milliseconds time) noexcept {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + time;
    while (true) {
        // Rounded up: never before the time is up.
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        pollfd ended{process.Get(), POLLIN, 0};
        const auto timeout = std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, INT_MAX);
        const int ready = ::poll(&ended, 1, static_cast<int>(timeout));
        if (ready >= 0 || errno != EINTR) {
            return ready > 0;
        }
    }
}

unsigned FindProcesses(const std::string& program, std::vector<HeldProcess>& found) {
    std::vector<ProcessEntry> all;
    unsigned status = ListProcesses(all);
    const std::vector<pid_t> spared = OwnLine(all);
    const Matcher matcher(program);
    for (auto one = all.begin(); one != all.end() && status == 0; ++one) {
        const bool mayEnd = one->id != 1 && !one->kernel && !one->dead &&
                            std::find(spared.begin(), spared.end(), one->id) == spared.end();
        if (!mayEnd) {
            continue;
        }
        // Held before it is looked at: if the number is another's by then, the signal goes nowhere.
        KDescriptor held;
        status = OpenProcess(one->id, held);
        if (held.IsOpen() && matcher.Matches(one->id)) {
            found.push_back({one->id, std::move(held), program});
        }
    }
    return status;
}

unsigned Signal(const HeldProcess& process, int signal) noexcept {
    const long result =
        ::syscall(SYS_pidfd_send_signal, process.descriptor.Get(), signal, nullptr, 0);
    return result == 0 || errno == ESRCH ? 0 : static_cast<unsigned>(errno);
}

void WaitForEnd(std::vector<HeldProcess>& processes, std::chrono::milliseconds time) noexcept {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + time;
    // One after the other: the time is up for all at once, and those that ended do not wait.
    std::erase_if(processes, [&](const HeldProcess& one) {
        return EndsWithin(
            one.descriptor, std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now())
        );
    });
}

} // namespace KSYS
