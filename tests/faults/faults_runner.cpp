// SPDX-License-Identifier: MIT
//
// One install and one removal in which system calls fail: the first call of a kind, then the second,
// and so on until the run no longer meets the failure; each time once, and from then on. Whatever
// fails, the run either ends well, whole, or with an error that names code and path and without a
// record; it never dies, and the clean run behind it finds nothing in its way.
//
// It belongs into the throwaway machine. Prints one line for each kind of failure and last a line
// "N passed, N failed".
#include "../support/EngineRig.h"
#include "failcall.h"

#include <sup++/KTraceLogger.h>
#include <sup++/KUtil.h>
#include <sup++/Svc.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using KTEST::TemporaryTree;
using Lines = std::vector<std::string>;

constexpr unsigned longestRunSeconds = 30;
constexpr unsigned mostCalls = 2000; ///< of one kind in one run; more is a loop without end

/// What may follow from a failure.
enum class Demand {
    Clear,   ///< a whole run, or a clear error
    Succeed, ///< the run must get round it
    Lenient, ///< the run may also pass over something and say it is done: that call asks whether or
             ///< what there is, and no answer counts as nothing
};

struct Row {
    const char* call;
    int errorNumber; ///< 0 for short transfers
    Demand demand;
};

std::string NameOf(int errorNumber) {
    return errorNumber == 0 ? "short" : ::strerrorname_np(errorNumber);
}

void Check(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/// How one run went.
struct Ending {
    bool died = false;
    std::string how; ///< "done", "error CODE", or what went wrong with the test itself
    unsigned code = 0;
    std::string info;
    std::string from;   ///< source and function of the error
    unsigned calls = 0; ///< of the kind that was to fail
};

struct Failure {
    const char* call = nullptr; ///< null for none
    unsigned nth = 0;
    int errorNumber = 0;
    bool onwards = false;
};

/// A kit, a place to install it to, and the script for both ways.
class Scene {
  public:
    explicit Scene(bool removing) : removal(removing) { Reset(); }

    /// The tree as it stands before the run that is tried.
    void Reset();
    /// An install, or a removal where that is what is tried.
    Ending Run(const Failure& failure) const { return Run(failure, removal); }
    Lines Tree() const { return tree.List("root"); }
    /// Whether the record of a finished install is written.
    bool HasRecord() const {
        const Lines lines = Tree();
        return std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
            return line.find("installedVersion=2.1\\nbuildNumber=37") != std::string::npos;
        });
    }

  private:
    Ending Run(const Failure& failure, bool removing) const;
    void Child(const Failure& failure, bool removing, int end) const;
    void EnterWorld() const;

    bool removal;
    TemporaryTree tree;
};

constexpr const char* script =
    "[install]\n"
    "directory=create,$pathTargetLinX86$\n"
    "directory=create,$pathTargetConfig$\n"
    "directory=create,/etc/$serviceName$\n"
    "file=delete,old,$pathTarget$\n"
    "file=copy,svc,$pathSource$,$pathTargetLinX86$\n"
    "file=copy,dps.ini,$pathSource$,$pathTargetConfig$\n"
    "file=copy,*.so,$pathSource$,$pathTargetLinX86$\n"
    "file=copy,over,$pathSource$,$pathTarget$\n"
    "file=copy,over,$pathSource$,$pathTarget$../way\n"
    "file=symlink,a.so,$pathTargetLinX86$,$pathTarget$,link\n"
    "file=symlink,svc,$pathTargetLinX86$,/etc/$serviceName$,$serviceName$\n"
    "[remove]\n"
    "file=delete,over,$pathTarget$../way\n"
    "file=delete,*,$pathTargetLinX86$\n"
    "directory=delete,$pathTargetLinX86$\n"
    "directory=delete,$pathTargetLin$\n"
    "directory=delete,$pathTargetConfig$\n"
    "directory=delete,$pathTarget$\n"
    "directory=delete,/etc/$serviceName$\n";

void Scene::Reset() {
    tree.Remove("root");
    tree.Remove("log");
    tree.Directory("log");
    tree.Directory("root/etc");
    tree.Write("root/kit/svc", "program", 0755);
    tree.Write("root/kit/dps.ini", "[General]\nLevel=1\n");
    tree.Write("root/kit/a.so", KTEST::ArbitraryBytes(200000), 0755);
    tree.Write("root/kit/b.so", "");
    tree.Write("root/kit/over", "new", 0640);
    tree.Write("root/p/old", "to be deleted");
    tree.Write("root/p/over", "to be replaced");
    tree.Link("root/p/link", "/to/be/replaced");
    tree.Link("root/way", "p/lin");
    tree.Write("install.ini", script);
    tree.Write("product.ini", "[product]\nversion=2.1\nbuildNumber=37\n");
    if (removal && Run({}, false).how != "done") {
        throw std::runtime_error("the install before the removal failed");
    }
}

void Scene::EnterWorld() const {
    Check(::unshare(CLONE_NEWNS), "unshare");
    Check(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount /");
    Check(::mount(tree.Path("root/etc").c_str(), "/etc", nullptr, MS_BIND, nullptr), "mount /etc");
    SvcGetGlobalLogger()->UseNothing();
    Check(SvcLoadProductData(tree.Path("product.ini").c_str()) == 0 ? 0 : -1, "product data");
    KTEST::EngineWorld::GivenArguments({});
    KSUP::KUtil::SetPathMap(2, tree.Path("root/kit"));
    KSUP::KUtil::SetPathMap(19, tree.Path("log"));
}

void Scene::Child(const Failure& failure, bool removing, int end) const {
    ::alarm(longestRunSeconds);
    std::string how;
    unsigned code = 0;
    std::string info;
    std::string from;
    unsigned calls = 0;
    try {
        EnterWorld();
        const KSUP::KString scriptPath = tree.Path("install.ini");
        const KSUP::KString productPath = tree.Path("root/p");
        if (failure.call != nullptr) {
            failcall_arm(failure.call, failure.nth, failure.errorNumber, failure.onwards ? 1 : 0);
        }
        try {
            KINS::KInstaller installer;
            installer.Initialize(scriptPath);
            installer.Start(productPath, removing ? KINS::ModeUninstall : KINS::ModeInstall);
            while (!installer.IsComplete()) {
                SvcPollingDispatch();
            }
            calls = failcall_disarm();
            how = "done";
        } catch (const KSUP::KError& error) {
            calls = failcall_disarm();
            code = error.GetCode();
            how = "error " + std::to_string(code);
            info = error.GetInfo().GetString().c_str();
            from = std::string(error.GetFile()) + ' ' + error.GetFunction();
        }
    } catch (const std::exception& error) {
        how = std::string("exception ") + error.what();
    }
    std::ostringstream report;
    report << calls << '\n' << code << '\n' << how << '\n' << from << '\n' << info;
    const std::string text = report.str();
    ::_exit(::write(end, text.data(), text.size()) < 0 ? 1 : 0);
}

Ending Scene::Run(const Failure& failure, bool removing) const {
    int ends[2];
    Check(::pipe(ends), "pipe");
    const pid_t child = ::fork();
    Check(child, "fork");
    if (child == 0) {
        ::close(ends[0]);
        Child(failure, removing, ends[1]);
    }
    ::close(ends[1]);
    std::string report;
    char buffer[4096];
    for (ssize_t step = 0; (step = ::read(ends[0], buffer, sizeof(buffer))) > 0;) {
        report.append(buffer, static_cast<std::size_t>(step));
    }
    ::close(ends[0]);
    int status = 0;
    Check(::waitpid(child, &status, 0), "waitpid");
    Ending ending;
    ending.died = !WIFEXITED(status) || WEXITSTATUS(status) != 0;
    if (ending.died) {
        ending.how = WIFSIGNALED(status) ? std::string("died of ") + ::strsignal(WTERMSIG(status))
                                         : "exited with a status";
        return ending;
    }
    std::istringstream lines(report);
    lines >> ending.calls >> ending.code >> std::ws;
    std::getline(lines, ending.how);
    std::getline(lines, ending.from);
    std::getline(lines, ending.info, '\0');
    return ending;
}

/// Tries one kind of failure at every call that a run makes.
class Trial {
  public:
    Trial(bool removing, const Row& kind, bool fromThenOn)
        : removal(removing),
          row(kind),
          onwards(fromThenOn),
          scene(removing) {
        finished = CleanTree();
    }

    /// Empty when all was well.
    Lines Complaints() {
        for (unsigned nth = 1; nth <= mostCalls; ++nth) {
            scene.Reset();
            const Ending ending = scene.Run({row.call, nth, row.errorNumber, onwards});
            if (!ending.died && ending.calls < nth) {
                Judge(nth, ending, false);
                return complaints;
            }
            ++failures;
            ended += ending.how == "done" ? 0U : 1U;
            Judge(nth, ending, true);
            Repair(nth);
        }
        Complain(mostCalls, "still called: a loop without end?");
        return complaints;
    }
    unsigned Failures() const { return failures; }
    unsigned Ended() const { return ended; }

  private:
    Lines CleanTree() {
        if (const Ending ending = scene.Run({}); ending.how != "done") {
            throw std::runtime_error(
                "the run without failures failed: " + ending.how + ' ' + ending.info
            );
        }
        return scene.Tree();
    }

    void Complain(unsigned nth, const std::string& what) {
        complaints.push_back("call " + std::to_string(nth) + ": " + what);
    }

    void Judge(unsigned nth, const Ending& ending, bool failed) {
        if (ending.how == "done") {
            const bool whole = scene.Tree() == finished;
            // A removal is made of directory rules, which forgive.
            const bool mayBePartial =
                row.demand == Demand::Lenient || (removal && row.demand != Demand::Succeed);
            if (!whole && !(failed && mayBePartial)) {
                Complain(nth, "done, but not everything is there" + Missing());
            }
            return;
        }
        if (ending.code == 0 || !failed || row.demand == Demand::Succeed) {
            Complain(nth, ending.how + ' ' + ending.info);
            return;
        }
        if (static_cast<int>(ending.code) != row.errorNumber && !IsConsequence(ending)) {
            Complain(nth, "unexpected " + ending.how + " from " + ending.from + ": " + ending.info);
        }
        if (!IsClear(ending)) {
            Complain(nth, ending.how + " from " + ending.from + " says '" + ending.info + '\'');
        }
        // Where only the last flush failed, the record stands already, and so does all it tells of.
        if (!removal && scene.HasRecord() && scene.Tree() != finished) {
            Complain(nth, ending.how + " with a record of more than is there" + Missing());
        }
    }

    /// An agreed error behind which the failing call's own is not seen.
    static bool IsConsequence(const Ending& ending) {
        return ending.code == ENOENT // a directory rule forgives; what needs the directory does not
               || ending.code == 64  // the record's link cannot be read
               || IsOfMissingRecordFile(ending);
    }
    /// A record file that cannot be read counts as none, and none can be written to.
    static bool IsOfMissingRecordFile(const Ending& ending) {
        return ending.code == 36 && ending.from == "sup++/KProfile PutNumber";
    }

    /// Path and the system's words, save where the error is agreed to have none, or no path is known.
    bool IsClear(const Ending& ending) const {
        if (ending.from == "ins/KFileRule DeleteFile" || ending.code == 64 ||
            IsOfMissingRecordFile(ending)) {
            return ending.info.empty();
        }
        const std::string words = ": " + std::string(std::strerror(static_cast<int>(ending.code)));
        const bool ofNoFile = ending.from.ends_with(" PutInstalledProductInformation") ||
                              std::strcmp(row.call, "pthread_create") == 0;
        return ending.info.ends_with(words) && (ofNoFile || ending.info.starts_with("/"));
    }

    /// The clean run behind it.
    void Repair(unsigned nth) {
        const Ending ending = scene.Run({});
        if (ending.how != "done" || scene.Tree() != finished) {
            Complain(nth, "the clean run behind it: " + ending.how + ' ' + ending.info + Missing());
        }
    }

    /// The first lines that differ from the tree of a clean run.
    std::string Missing() const {
        std::string text;
        const Lines now = scene.Tree();
        for (const std::string& line : finished) {
            if (std::find(now.begin(), now.end(), line) == now.end()) {
                text += "\n        missing " + line;
            }
        }
        for (const std::string& line : now) {
            if (std::find(finished.begin(), finished.end(), line) == finished.end()) {
                text += "\n        left    " + line;
            }
        }
        return text;
    }

    bool removal;
    const Row& row;
    bool onwards;
    Scene scene;
    Lines finished;
    Lines complaints;
    unsigned failures = 0;
    unsigned ended = 0;
};

// Full, denied, gone, broken, interrupted, short; and what a kernel or file system does not have.
const std::vector<Row> rows{
    {"openat2", ENOSPC, Demand::Clear},
    {"openat2", EACCES, Demand::Clear},
    {"openat2", EIO, Demand::Clear},
    {"openat2", EMFILE, Demand::Clear},
    {"openat2", EINTR, Demand::Succeed},
    {"openat2", ENOSYS, Demand::Succeed},
    {"openat2", EPERM, Demand::Succeed},
    {"openat", ENOSPC, Demand::Clear},
    {"openat", EACCES, Demand::Clear},
    {"openat", EIO, Demand::Clear},
    {"openat", EINTR, Demand::Succeed},
    {"open", EACCES, Demand::Clear},
    {"open", ENOENT, Demand::Clear},
    {"open", EIO, Demand::Clear},
    {"open", EINTR, Demand::Succeed},
    {"copy_file_range", ENOSPC, Demand::Clear},
    {"copy_file_range", EIO, Demand::Clear},
    {"copy_file_range", EINTR, Demand::Succeed},
    {"copy_file_range", 0, Demand::Succeed},
    {"copy_file_range", EXDEV, Demand::Succeed},
    {"copy_file_range", ENOSYS, Demand::Succeed},
    {"copy_file_range", EOPNOTSUPP, Demand::Succeed},
    {"copy_file_range", EINVAL, Demand::Succeed},
    {"write", ENOSPC, Demand::Clear},
    {"write", EIO, Demand::Clear},
    {"write", EINTR, Demand::Succeed},
    {"write", 0, Demand::Succeed},
    {"read", EIO, Demand::Clear},
    {"read", EINTR, Demand::Succeed},
    {"read", 0, Demand::Succeed},
    {"fchmod", EPERM, Demand::Clear},
    {"fchmod", EIO, Demand::Clear},
    {"fchown", EPERM, Demand::Clear},
    {"fstat", EIO, Demand::Clear},
    {"fstatat", EIO, Demand::Clear},
    {"fsync", EIO, Demand::Clear},
    {"fsync", ENOSPC, Demand::Clear},
    {"fsync", EINTR, Demand::Succeed},
    {"syncfs", EIO, Demand::Clear},
    {"syncfs", ENOSPC, Demand::Clear},
    {"syncfs", EINTR, Demand::Succeed},
    {"renameat", EIO, Demand::Clear},
    {"renameat", ENOSPC, Demand::Clear},
    {"symlinkat", ENOSPC, Demand::Clear},
    {"symlinkat", EACCES, Demand::Clear},
    {"unlinkat", EACCES, Demand::Clear},
    {"unlinkat", EIO, Demand::Clear},
    {"mkdirat", ENOSPC, Demand::Clear},
    {"mkdirat", EACCES, Demand::Clear},
    {"close", EIO, Demand::Clear},
    {"close", ENOSPC, Demand::Clear},
    {"close", EINTR, Demand::Clear},
    {"flock", EIO, Demand::Clear},
    {"flock", EINTR, Demand::Succeed},
    {"readlink", EIO, Demand::Clear},
    {"readlinkat", EIO, Demand::Clear},
    {"opendir", EIO, Demand::Lenient},
    {"opendir", EACCES, Demand::Lenient},
    {"readdir", EIO, Demand::Lenient},
    {"access", EIO, Demand::Lenient},
    {"pthread_create", EAGAIN, Demand::Clear},
};

/// Interrupted for ever is no failure that a machine has.
bool Applies(const Row& row, bool onwards) {
    return !onwards || row.errorNumber != EINTR;
}

enum class Verdict { Passed, Failed, NeverCalled };

Verdict Try(bool removal, const Row& row, bool onwards) {
    const std::string name = std::string(removal ? "removal" : "install") + ", " + row.call + ' ' +
                             NameOf(row.errorNumber) + (onwards ? " from then on" : " once");
    try {
        Trial trial(removal, row, onwards);
        const Lines complaints = trial.Complaints();
        if (trial.Failures() == 0 && complaints.empty()) {
            return Verdict::NeverCalled;
        }
        std::cout << (complaints.empty() ? "ok     " : "FAILED ") << name << ": "
                  << trial.Failures() << " failures, " << trial.Ended() << " ended the run\n";
        for (const std::string& complaint : complaints) {
            std::cout << "    " << complaint << '\n';
        }
        std::cout.flush();
        return complaints.empty() ? Verdict::Passed : Verdict::Failed;
    } catch (const std::exception& error) {
        std::cout << "FAILED " << name << ": " << error.what() << '\n';
        return Verdict::Failed;
    }
}

} // namespace

int main(int argc, char** argv) {
    const char* const machine = std::getenv("INSPP_THROWAWAY");
    if (machine == nullptr || std::strcmp(machine, "1") != 0) {
        std::cerr
            << "faults_runner: it installs products as root and mounts over /etc; run it in the "
               "throwaway machine (tests/machine/throwaway --setenv INSPP_THROWAWAY=1 -- …)\n";
        return 2;
    }
    const std::string only = argc > 1 ? argv[1] : "";
    unsigned passed = 0;
    unsigned failed = 0;
    for (const Row& row : rows) {
        bool called = !only.empty() && only != row.call;
        for (const bool removal : {false, true}) {
            for (const bool onwards : {false, true}) {
                if (!Applies(row, onwards) || (!only.empty() && only != row.call)) {
                    continue;
                }
                const Verdict verdict = Try(removal, row, onwards);
                passed += verdict == Verdict::Passed ? 1U : 0U;
                failed += verdict == Verdict::Failed ? 1U : 0U;
                called |= verdict != Verdict::NeverCalled;
            }
        }
        if (!called) { // a row that nothing can fail says nothing
            std::cout << "FAILED " << row.call << ' ' << NameOf(row.errorNumber)
                      << ": neither run makes this call any more; the row is to go\n";
            ++failed;
        }
    }
    std::cout << passed << " passed, " << failed << " failed\n";
    return failed == 0 && passed > 0 ? 0 : 1;
}
