// SPDX-License-Identifier: MIT
#include "KTracedRun.h"

#include "Files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <map>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
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

/// Has the kernel stop at these calls, and at no other: a stop at each takes longer than all else.
std::vector<sock_filter> MakeFilter(const std::vector<long>& numbers) {
    const auto load = [](std::size_t offset) {
        return sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned>(offset));
    };
    std::vector<sock_filter> filter = {load(offsetof(seccomp_data, nr))};
    for (const long number : numbers) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(number), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    return filter;
}

[[noreturn]] void BecomeProgram(
    const std::vector<std::string>& words, int out, int err, std::vector<sock_filter>* filter
) {
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
    if (filter != nullptr) {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::raise(SIGSTOP);
        const sock_fprog program{static_cast<unsigned short>(filter->size()), filter->data()};
        if (::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
            ::_exit(126);
        }
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

/// The numbers of this program's children, the oldest first, as proc(5) has them.
std::string Children() {
    return Read("/proc/thread-self/children");
}

/// One run. The kernel stops its threads at the calls that are watched, and at the end of one that is to
/// be followed up. Children inherit the filter, and would have all these calls refused without a tracer;
/// so they are traced too, and let go on at once.
class KTracer {
  public:
    KTracer(
        const KBlow& itsBlow,
        const KWatch& whatIsWatched,
        const std::function<void(const KSeenCall&, bool)>& whoLooks
    )
        : blow(itsBlow),
          watch(whatIsWatched),
          seen(whoLooks) {}

    KTracedEnd Run(const std::vector<std::string>& words);

  private:
    struct KPending {
        KSeenCall call;
        bool fails = false;  ///< it is not made, and this is what it gives
        bool closes = false; ///< a close that fails closes all the same
        bool killsAfter = false;
        bool isSeen = false;
    };

    void Follow();
    __ptrace_request GoOnFrom(pid_t thread, int stopped, int& signal);
    bool Enter(pid_t thread);
    void Leave(pid_t thread);
    void Strike(pid_t thread, const __ptrace_syscall_info& info, KPending& pending);
    KSeenCall Describe(pid_t thread, const __ptrace_syscall_info& info);

    const KBlow& blow;
    const KWatch& watch;
    const std::function<void(const KSeenCall&, bool)>& seen;
    pid_t first = 0;
    bool isProgram = false; // its execve was made
    std::map<long, unsigned> made;
    std::map<pid_t, KPending> pendings;
    KTracedEnd end;
    int status = 0;
    const std::string othersBefore = Children();
};

KTracedEnd KTracer::Run(const std::vector<std::string>& words) {
    const KOutput out;
    const KOutput err;
    std::vector<sock_filter> filter = MakeFilter(watch.numbers);
    // What a run that is killed had started would go on behind the look at what it left.
    Check(::prctl(PR_SET_CHILD_SUBREAPER, 1), "prctl");
    first = ::fork();
    Check(first, "fork");
    if (first == 0) {
        BecomeProgram(words, out.Get(), err.Get(), &filter);
    }
    Check(::waitpid(first, &status, 0), "waitpid");
    const auto options = PTRACE_O_TRACESECCOMP | PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEEXEC |
                         PTRACE_O_TRACECLONE | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                         PTRACE_O_EXITKILL;
    Check(::ptrace(PTRACE_SETOPTIONS, first, nullptr, options), "ptrace options");
    Check(::ptrace(PTRACE_CONT, first, nullptr, nullptr), "ptrace");
    Follow();
    Fill(end, status, out, err);
    return std::move(end);
}

/// Up to the end of all that it started, and no further: whoever disturbs it goes on.
void KTracer::Follow() {
    for (;;) {
        int stopped = 0;
        const pid_t thread = ::waitpid(-1, &stopped, __WALL);
        if (thread < 0 && errno == ECHILD) {
            return;
        }
        Check(thread, "waitpid");
        if (WIFSTOPPED(stopped)) {
            int signal = 0;
            const __ptrace_request request = GoOnFrom(thread, stopped, signal);
            ::ptrace(request, thread, nullptr, signal); // gone when it was killed meanwhile
            continue;
        }
        if (thread == first) {
            status = stopped;
        }
        if (Children() == othersBefore) {
            return;
        }
    }
}

/// What a thread that stands still is to do next.
__ptrace_request KTracer::GoOnFrom(pid_t thread, int stopped, int& signal) {
    constexpr int callStop = SIGTRAP | 0x80;
    const int event = stopped >> 16;
    if (event == PTRACE_EVENT_EXEC) {
        isProgram = true;
    } else if (event == PTRACE_EVENT_SECCOMP) {
        const bool isOurs = ::syscall(SYS_tgkill, first, thread, 0) == 0;
        return isProgram && isOurs && Enter(thread) ? PTRACE_SYSCALL : PTRACE_CONT;
    } else if (WSTOPSIG(stopped) == callStop) {
        Leave(thread);
    } else if (event == 0 && WSTOPSIG(stopped) != SIGSTOP) { // which is how a new one begins
        signal = WSTOPSIG(stopped);
    }
    return PTRACE_CONT;
}

KSeenCall KTracer::Describe(pid_t thread, const __ptrace_syscall_info& info) {
    KSeenCall call;
    call.number = static_cast<long>(info.seccomp.nr);
    call.nthOfNumber = ++made[call.number];
    if (const KCallShape* shape = ShapeOf(call.number); shape && shape->path != nameNowhere) {
        call.path = TextAt(thread, info.seccomp.args[static_cast<unsigned>(shape->path)]);
    }
    if (call.number == SYS_openat) {
        call.makes = (info.seccomp.args[2] & O_CREAT) != 0;
    } else if (call.number == SYS_openat2) { // the flags are the first of its structure
        const long flags = ::ptrace(PTRACE_PEEKDATA, thread, info.seccomp.args[2], nullptr);
        call.makes = (flags & O_CREAT) != 0;
    }
    return call;
}

/// Whether the end of the call is to be followed up.
bool KTracer::Enter(pid_t thread) {
    __ptrace_syscall_info info{};
    // Negative for a thread that was killed meanwhile.
    if (::ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(info), &info) <= 0) {
        return false;
    }
    KPending pending{Describe(thread, info), false, false, false, false};
    const bool counts = !end.wasStruck && watch.counts(pending.call);
    if (counts) {
        end.calls.push_back(pending.call);
        if (seen) {
            seen(pending.call, false);
            pending.isSeen = true;
        }
    }
    const bool isTurn =
        end.wasStruck ? blow.onwards
                      : counts && blow.kind != KBlow::Kind::None && end.calls.size() == blow.nth;
    if (isTurn) {
        end.wasStruck = true;
        Strike(thread, info, pending);
    }
    const bool isFollowed = pending.fails || pending.killsAfter || pending.isSeen;
    if (isFollowed) {
        pendings[thread] = std::move(pending);
    }
    return isFollowed;
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
        const std::uint64_t half = (info.seccomp.args[argument] + 1) / 2;
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
    } else if (pending.isSeen) {
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
    const KWatch& watch,
    const std::function<void(const KSeenCall&, bool isDone)>& seen
) {
    return KTracer(blow, watch, seen).Run(words);
}

KTracedEnd RunUntraced(const std::vector<std::string>& words) {
    const KOutput out;
    const KOutput err;
    const pid_t child = ::fork();
    Check(child, "fork");
    if (child == 0) {
        BecomeProgram(words, out.Get(), err.Get(), nullptr);
    }
    int status = 0;
    Check(::waitpid(child, &status, 0), "waitpid");
    KTracedEnd end;
    Fill(end, status, out, err);
    return end;
}

const KWatch& FileChanges() {
    static const KWatch watch = [] {
        KWatch changes{{SYS_open, SYS_openat, SYS_openat2}, [](const KSeenCall& call) {
                           return call.makes || ShapeOf(call.number)->changes;
                       }};
        for (const auto& [number, shape] : Shapes()) {
            if (shape.changes) {
                changes.numbers.push_back(number);
            }
        }
        return changes;
    }();
    return watch;
}

bool WritesBytes(const KSeenCall& call) {
    const KCallShape* shape = ShapeOf(call.number);
    return shape != nullptr && shape->size != nameNowhere;
}

} // namespace KSWEEP
