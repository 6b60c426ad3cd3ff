// SPDX-License-Identifier: MIT
#include "KTracedRun.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <map>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KSWEEP {

namespace {

constexpr unsigned longestRunSeconds = 30;
constexpr int nameNowhere = -1;

struct KCallShape {
    const char* name;
    int path = nameNowhere; ///< which argument has a name
    int size = nameNowhere; ///< which one has a number of bytes
    bool changes = false;
};

/// Calls that have something to do with files, processes and time, as far as they can fail.
const std::map<long, KCallShape>& Shapes() {
    static const std::map<long, KCallShape> shapes = {
        {SYS_read, {"read"}},
        {SYS_pread64, {"pread64"}},
        {SYS_write, {"write", nameNowhere, 2, true}},
        {SYS_pwrite64, {"pwrite64", nameNowhere, 2, true}},
        {SYS_writev, {"writev", nameNowhere, nameNowhere, true}},
        {SYS_copy_file_range, {"copy_file_range", nameNowhere, 4, true}},
        {SYS_sendfile, {"sendfile", nameNowhere, 3, true}},
        {SYS_ftruncate, {"ftruncate", nameNowhere, nameNowhere, true}},
        {SYS_fallocate, {"fallocate", nameNowhere, nameNowhere, true}},
        {SYS_open, {"open", 0}},
        {SYS_openat, {"openat", 1}},
        {SYS_openat2, {"openat2", 1}},
        {SYS_close, {"close"}},
        {SYS_stat, {"stat", 0}},
        {SYS_lstat, {"lstat", 0}},
        {SYS_fstat, {"fstat"}},
        {SYS_newfstatat, {"newfstatat", 1}},
        {SYS_statx, {"statx", 1}},
        {SYS_statfs, {"statfs", 0}},
        {SYS_fstatfs, {"fstatfs"}},
        {SYS_access, {"access", 0}},
        {SYS_faccessat, {"faccessat", 1}},
        {SYS_faccessat2, {"faccessat2", 1}},
        {SYS_readlink, {"readlink", 0}},
        {SYS_readlinkat, {"readlinkat", 1}},
        {SYS_getdents64, {"getdents64"}},
        {SYS_rename, {"rename", 1, nameNowhere, true}},
        {SYS_renameat, {"renameat", 3, nameNowhere, true}},
        {SYS_renameat2, {"renameat2", 3, nameNowhere, true}},
        {SYS_unlink, {"unlink", 0, nameNowhere, true}},
        {SYS_unlinkat, {"unlinkat", 1, nameNowhere, true}},
        {SYS_rmdir, {"rmdir", 0, nameNowhere, true}},
        {SYS_mkdir, {"mkdir", 0, nameNowhere, true}},
        {SYS_mkdirat, {"mkdirat", 1, nameNowhere, true}},
        {SYS_symlink, {"symlink", 1, nameNowhere, true}},
        {SYS_symlinkat, {"symlinkat", 2, nameNowhere, true}},
        {SYS_link, {"link", 1, nameNowhere, true}},
        {SYS_linkat, {"linkat", 3, nameNowhere, true}},
        {SYS_chmod, {"chmod", 0, nameNowhere, true}},
        {SYS_fchmod, {"fchmod", nameNowhere, nameNowhere, true}},
        {SYS_fchmodat, {"fchmodat", 1, nameNowhere, true}},
        {SYS_fchown, {"fchown", nameNowhere, nameNowhere, true}},
        {SYS_fchownat, {"fchownat", 1, nameNowhere, true}},
        {SYS_utimensat, {"utimensat", 1, nameNowhere, true}},
        {SYS_fsetxattr, {"fsetxattr", 1, nameNowhere, true}},
        {SYS_fgetxattr, {"fgetxattr", 1}},
        {SYS_flistxattr, {"flistxattr"}},
        {SYS_ioctl, {"ioctl"}},
        {SYS_fsync, {"fsync", nameNowhere, nameNowhere, true}},
        {SYS_fdatasync, {"fdatasync", nameNowhere, nameNowhere, true}},
        {SYS_syncfs, {"syncfs", nameNowhere, nameNowhere, true}},
        {SYS_flock, {"flock", nameNowhere, nameNowhere, true}},
        {SYS_fcntl, {"fcntl"}},
        {SYS_dup, {"dup"}},
        {SYS_dup2, {"dup2"}},
        {SYS_dup3, {"dup3"}},
        {SYS_pipe2, {"pipe2"}},
        {SYS_socket, {"socket"}},
        {SYS_connect, {"connect"}},
        {SYS_sendmsg, {"sendmsg"}},
        {SYS_recvmsg, {"recvmsg"}},
        {SYS_sendto, {"sendto"}},
        {SYS_poll, {"poll"}},
        {SYS_ppoll, {"ppoll"}},
        {SYS_wait4, {"wait4"}},
        {SYS_waitid, {"waitid"}},
        {SYS_clone3, {"clone3"}},
        {SYS_clone, {"clone"}},
        {SYS_vfork, {"vfork"}},
        {SYS_mmap, {"mmap"}},
        {SYS_brk, {"brk"}},
        {SYS_memfd_create, {"memfd_create", 0}},
        {SYS_prlimit64, {"prlimit64"}},
        {SYS_getrandom, {"getrandom"}},
        {SYS_unshare, {"unshare"}},
        {SYS_mount, {"mount", 1, nameNowhere, true}},
        {SYS_prctl, {"prctl"}},
    };
    return shapes;
}

const KCallShape* ShapeOf(long number) {
    const auto found = Shapes().find(number);
    return found != Shapes().end() ? &found->second : nullptr;
}

void Check(long result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/// Of a thread that stands still; empty when there is nothing to be read.
std::string TextAt(pid_t thread, std::uint64_t address) {
    std::array<char, 4096> bytes{};
    // Up to the end of the page first: what is behind it may not be there.
    const std::size_t first = std::min<std::size_t>(bytes.size() - address % bytes.size(), 512);
    std::string text;
    for (std::size_t size = first; address != 0 && text.size() < bytes.size(); size = 512) {
        iovec here{bytes.data(), size};
        iovec there{
            reinterpret_cast<void*>(address),
            size}; // NOLINT(performance-no-int-to-ptr): another process's
        const ssize_t step = ::process_vm_readv(thread, &here, 1, &there, 1, 0);
        if (step <= 0) {
            return {};
        }
        const auto* const begin = bytes.data();
        const auto* const end = std::find(begin, begin + step, '\0');
        text.append(begin, end);
        if (end != begin + step) {
            return text;
        }
        address += static_cast<std::uint64_t>(step);
    }
    return text;
}

/// A run's output, in memory: a pipe that nobody reads would hold it up.
class KOutput {
  public:
    KOutput() : file(::memfd_create("output", 0)) { Check(file, "memfd_create"); }
    ~KOutput() { ::close(file); }
    KOutput(const KOutput&) = delete;
    KOutput& operator=(const KOutput&) = delete;

    int Get() const noexcept { return file; }
    std::string Read() const {
        std::string text;
        std::array<char, 4096> bytes{};
        off_t at = 0;
        for (ssize_t step = 0; (step = ::pread(file, bytes.data(), bytes.size(), at)) > 0;
             at += step) {
            text.append(bytes.data(), static_cast<std::size_t>(step));
        }
        return text;
    }

  private:
    int file;
};

[[noreturn]] void
BecomeProgram(const std::vector<std::string>& words, int out, int err, bool isTraced) {
    const int nowhere = ::open("/dev/null", O_RDONLY); // NOLINT(android-cloexec-open): inherited
    ::dup2(nowhere, 0);
    ::dup2(out, 1);
    ::dup2(err, 2);
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str())
        ); // NOLINT(cppcoreguidelines-pro-type-const-cast): execv
    }
    arguments.push_back(nullptr);
    ::alarm(longestRunSeconds);
    if (isTraced) {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::raise(SIGSTOP);
    }
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
}

void Fill(KTracedEnd& end, int status, const KOutput& out, const KOutput& err) {
    if (WIFEXITED(status)) {
        end.exitCode = WEXITSTATUS(status);
    } else {
        end.signal = WTERMSIG(status);
    }
    end.out = out.Read();
    end.err = err.Read();
}

/// One run. A thread that is at a call of its own is known by what it is about to do there.
class KTracer {
  public:
    KTracer(
        const KBlow& itsBlow,
        const std::function<bool(const KSeenCall&)>& whichCount,
        const std::function<void(const KSeenCall&, bool)>& whoLooks
    )
        : blow(itsBlow),
          counts(whichCount),
          seen(whoLooks) {}

    KTracedEnd Run(const std::vector<std::string>& words);

  private:
    struct KPending {
        KSeenCall call;
        bool counts = false;
        bool fails = false;  ///< it is not made, and this is what it gives
        bool closes = false; ///< a close that fails closes all the same
        bool killsAfter = false;
    };

    void Follow();
    void AtCall(pid_t thread);
    void Enter(pid_t thread, const __ptrace_syscall_info& info);
    void Leave(pid_t thread);
    void Strike(pid_t thread, const __ptrace_syscall_info& info, KPending& pending);
    bool IsTurnOf(const KSeenCall& call);
    bool IsOver() const;
    KSeenCall Describe(pid_t thread, const __ptrace_syscall_info& info) const;

    const KBlow& blow;
    const std::function<bool(const KSeenCall&)>& counts;
    const std::function<void(const KSeenCall&, bool)>& seen;
    pid_t first = 0;
    unsigned number = 0;
    long struckCall = -1;
    bool isProgram = false; // its execve was made
    std::map<pid_t, KPending> pendings;
    KTracedEnd end;
    int status = 0;
};

KTracedEnd KTracer::Run(const std::vector<std::string>& words) {
    const KOutput out;
    const KOutput err;
    // What a run that is killed had started would go on behind the look at what it left.
    Check(::prctl(PR_SET_CHILD_SUBREAPER, 1), "prctl");
    first = ::fork();
    Check(first, "fork");
    if (first == 0) {
        BecomeProgram(words, out.Get(), err.Get(), true);
    }
    Check(::waitpid(first, &status, 0), "waitpid");
    const auto options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
    Check(::ptrace(PTRACE_SETOPTIONS, first, nullptr, options), "ptrace options");
    Check(::ptrace(PTRACE_SYSCALL, first, nullptr, nullptr), "ptrace");
    Follow();
    while (end.wasStruck && ::waitpid(-1, nullptr, 0) > 0) {
    }
    Fill(end, status, out, err);
    return std::move(end);
}

void KTracer::Follow() {
    for (;;) {
        int stopped = 0;
        const pid_t thread = ::waitpid(-1, &stopped, __WALL);
        Check(thread, "waitpid");
        if (!WIFSTOPPED(stopped)) {
            if (thread == first) {
                status = stopped;
                return;
            }
            continue;
        }
        int signal = WSTOPSIG(stopped);
        if (signal == (SIGTRAP | 0x80)) {
            signal = 0;
            AtCall(thread);
        } else if (signal == SIGTRAP || signal == SIGSTOP) { // of tracing itself
            signal = 0;
        }
        // Gone when it was killed meanwhile.
        ::ptrace(IsOver() ? PTRACE_CONT : PTRACE_SYSCALL, thread, nullptr, signal);
    }
}

/// Whether no further call is of interest, which lets the run go on at its own speed.
bool KTracer::IsOver() const {
    return end.wasStruck && !blow.onwards &&
           std::none_of(pendings.begin(), pendings.end(), [](const auto& one) {
               return one.second.fails || one.second.killsAfter;
           });
}

void KTracer::AtCall(pid_t thread) {
    __ptrace_syscall_info info{};
    // Negative for a thread that was killed meanwhile.
    if (::ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(info), &info) <= 0) {
        return;
    }
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
        Enter(thread, info);
    } else if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
        Leave(thread);
    }
}

KSeenCall KTracer::Describe(pid_t thread, const __ptrace_syscall_info& info) const {
    KSeenCall call{static_cast<long>(info.entry.nr), {}, false};
    if (const KCallShape* shape = ShapeOf(call.number); shape && shape->path != nameNowhere) {
        call.path = TextAt(thread, info.entry.args[static_cast<unsigned>(shape->path)]);
    }
    if (call.number == SYS_openat) {
        call.makes = (info.entry.args[2] & O_CREAT) != 0;
    } else if (call.number == SYS_openat2) { // the flags are the first of its structure
        const long flags = ::ptrace(PTRACE_PEEKDATA, thread, info.entry.args[2], nullptr);
        call.makes = (flags & O_CREAT) != 0;
    }
    return call;
}

void KTracer::Enter(pid_t thread, const __ptrace_syscall_info& info) {
    if (!isProgram) { // the calls of the child before it
        isProgram = info.entry.nr == SYS_execve;
        return;
    }
    KPending& pending = pendings[thread];
    pending = {Describe(thread, info), false, false, false, false};
    pending.counts = !end.wasStruck && counts(pending.call);
    if (pending.counts) {
        end.calls.push_back(pending.call);
        if (seen) {
            seen(pending.call, false);
        }
    }
    if (IsTurnOf(pending.call)) {
        end.wasStruck = true;
        struckCall = pending.call.number;
        Strike(thread, info, pending);
    }
}

bool KTracer::IsTurnOf(const KSeenCall& call) {
    if (end.wasStruck) {
        return blow.kind == KBlow::Kind::Fail && blow.onwards && call.number == struckCall;
    }
    if (blow.kind == KBlow::Kind::None || !counts(call)) {
        return false;
    }
    ++number;
    return blow.number < 0 ? number == blow.nth : number >= blow.nth && call.number == blow.number;
}

void KTracer::Strike(pid_t thread, const __ptrace_syscall_info& info, KPending& pending) {
    // Threads do not always make the same calls, so this one may not write.
    const bool isHalf = blow.kind == KBlow::Kind::HalfWrite && WritesBytes(pending.call);
    if (blow.kind != KBlow::Kind::Fail && !isHalf) {
        ::kill(first, SIGKILL);
        return;
    }
    user_regs_struct registers{};
    Check(::ptrace(PTRACE_GETREGS, thread, nullptr, &registers), "registers");
    if (isHalf) {
        const KCallShape* shape = ShapeOf(pending.call.number);
        const auto argument = static_cast<unsigned>(shape->size);
        const std::uint64_t half = (info.entry.args[argument] + 1) / 2;
        const std::array<unsigned long long user_regs_struct::*, 6> arguments = {
            &user_regs_struct::rdi,
            &user_regs_struct::rsi,
            &user_regs_struct::rdx,
            &user_regs_struct::r10,
            &user_regs_struct::r8,
            &user_regs_struct::r9};
        registers.*arguments[argument] = half;
        pending.killsAfter = true;
    } else {
        pending.fails = true;
        pending.closes = pending.call.number == SYS_close;
        if (!pending.closes) {
            registers.orig_rax = static_cast<unsigned long long>(-1); // none
        }
    }
    Check(::ptrace(PTRACE_SETREGS, thread, nullptr, &registers), "registers");
}

void KTracer::Leave(pid_t thread) {
    const auto found = pendings.find(thread);
    if (found == pendings.end()) {
        return;
    }
    const KPending pending = std::exchange(found->second, {});
    if (pending.fails) {
        user_regs_struct registers{};
        Check(::ptrace(PTRACE_GETREGS, thread, nullptr, &registers), "registers");
        registers.rax = static_cast<unsigned long long>(-static_cast<long long>(blow.errorNumber));
        Check(::ptrace(PTRACE_SETREGS, thread, nullptr, &registers), "registers");
    }
    if (pending.killsAfter) {
        ::kill(first, SIGKILL);
    } else if (pending.counts && seen) {
        seen(pending.call, true);
    }
}

} // namespace

std::string KSeenCall::ToText() const {
    const KCallShape* shape = ShapeOf(number);
    return (shape != nullptr ? shape->name : "call " + std::to_string(number)) + "(" + path +
           (makes ? ", O_CREAT)" : ")");
}

KTracedEnd Trace(
    const std::vector<std::string>& words,
    const KBlow& blow,
    const std::function<bool(const KSeenCall&)>& counts,
    const std::function<void(const KSeenCall&, bool isDone)>& seen
) {
    return KTracer(blow, counts, seen).Run(words);
}

KTracedEnd RunUntraced(const std::vector<std::string>& words) {
    const KOutput out;
    const KOutput err;
    const pid_t child = ::fork();
    Check(child, "fork");
    if (child == 0) {
        BecomeProgram(words, out.Get(), err.Get(), false);
    }
    int status = 0;
    Check(::waitpid(child, &status, 0), "waitpid");
    KTracedEnd end;
    Fill(end, status, out, err);
    return end;
}

bool ChangesFiles(const KSeenCall& call) {
    const KCallShape* shape = ShapeOf(call.number);
    return shape != nullptr && (shape->changes || call.makes);
}

bool WritesBytes(const KSeenCall& call) {
    const KCallShape* shape = ShapeOf(call.number);
    return shape != nullptr && shape->size != nameNowhere;
}

} // namespace KSWEEP
