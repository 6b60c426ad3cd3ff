// SPDX-License-Identifier: MIT
#include <ins/KInstaller.h>
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/AccountNames.h>
#include <setup/files/KFileDigest.h>
#include <setup/files/PathText.h>
#include <setup/kit/KSetupKit.h>
#include <setup/kit/KitSigning.h>
#include <setup/preflight/KUnpackedBundle.h>
#include <setup/preflight/Preflight.h>
#include <setup/preflight/TrustedPlaces.h>
#include <setup/preflight/ValuesFile.h>
#include <setup/process/ImageRoot.h>
#include <setup/state/KRootLocks.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

#include <bundle/KWorkPlace.h>
#include <sys/files/FileStatus.h>
#include <sys/processes/KHeldSignals.h>
#include <sys/processes/OwnProcess.h>
#include <sys/processes/PrivateRoot.h>
#include <sys/processes/ProcessIsolation.h>
#include <sys/wait.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

std::string Reason(unsigned errorNumber) {
    return std::generic_category().message(static_cast<int>(errorNumber));
}

[[noreturn]] void RefuseRoot(int exitCode, const std::string& path, const KText& why) {
    throw KSetupFailure(exitCode, Text("%s: %s Nothing was changed.", path, why));
}

/// What the process inside gets of this machine.
struct Shown {
    std::vector<KSYS::ShownEntry> entries;
    std::unique_ptr<KBUNDLE::KWorkPlace> unpacked;

    /// Returns  the path that it has inside
    std::string Add(const KSYS::ShownEntry& entry) {
        entries.push_back(entry);
        return KSYS::privateRootPlace + entry.source;
    }
};

void ShowBundle(KSetupArguments& arguments, Shown& shown) {
    std::error_code missing;
    const std::string file = fs::canonical(arguments.bundle, missing).string();
    if (missing) {
        RefuseRoot(ExitCode::noKit, arguments.bundle, KText(missing.message() + "."));
    }
    arguments.bundle = shown.Add({file, false, true});
    const std::string signature = file + signatureEnding;
    if (fs::is_regular_file(signature, missing)) {
        shown.Add({signature, false, true});
    }
    // Not in the tree, which may have no room for it.
    shown.unpacked = KUnpackedBundle::MakeWorkPlace(KUnpackedBundle::usualParent);
    arguments.unpackParent = shown.Add({shown.unpacked->GetPath(), true, false});
}

void ShowKit(KSetupArguments& arguments, Shown& shown) {
    const bool isOfCaller = arguments.command == Command::PlanInstall ||
                            arguments.command == Command::PlanRemove ||
                            arguments.command == Command::Macros;
    // Loaded here too, so that a mistake is told of the file that its author knows.
    const KSetupKit kit(isOfCaller ? KSetupKit::ChooseDirectory(arguments.kit) : arguments.kit);
    RequirePrivateWay(kit.GetDirectory());
    arguments.kit = shown.Add({kit.GetDirectory(), true, true});
}

/// The run has some directories of the tree for itself.
void RequireShowable(const Shown& shown, const std::string& root) {
    for (const KSYS::ShownEntry& entry : shown.entries) {
        for (const char* own : {"run", "dev", "proc"}) {
            if (IsAtOrBelow(entry.source, JoinPath(root, own))) {
                RefuseRoot(
                    ExitCode::noKit,
                    entry.source,
                    Text(
                        "what is in %s is hidden while that tree is worked on. Move it to another "
                        "place.",
                        JoinPath(root, own)
                    )
                );
            }
        }
    }
}

Shown TakeAlong(KSetupArguments& arguments) {
    Shown shown;
    TakeValues(arguments);
    if (arguments.command == Command::Verify) { // the target stays what it is called
        std::error_code unknown;                // then it is taken for a directory, and that tells
        const bool isFile = fs::is_regular_file(arguments.target, unknown);
        (isFile ? arguments.bundle : arguments.kit) = arguments.target;
    }
    if (!arguments.bundle.empty()) {
        ShowBundle(arguments, shown);
    } else if (arguments.product.empty() && arguments.command != Command::List) {
        ShowKit(arguments, shown);
    }
    return shown;
}

/// What is loaded when it is first needed would be taken from the tree, which may be of another
/// system.
void LoadBeforehand() {
    static_cast<void>(PrvInsLoadMessage()); // the engine asks again, and tells
    static_cast<void>(DigestBytes(""));
    UseLocalAccounts();
}

bool IsQuestion(Command command) noexcept {
    return command != Command::Install && command != Command::Remove && command != Command::Restore;
}

[[noreturn]] void RefuseStep(const KSYS::FailedStep& failed, const std::string& root) {
    if (failed.error == EPERM || failed.error == EACCES) {
        RefuseRoot(
            ExitCode::notRoot,
            root,
            Text(
                "it cannot be made the root of a process: %s. That takes the right to mount "
                "(CAP_SYS_ADMIN), which containers are without. Run it on the machine itself, or "
                "in a "
                "container that has all rights (--privileged).",
                Reason(failed.error)
            )
        );
    }
    if (failed.error == EINVAL && failed.path == "/") {
        RefuseRoot(
            ExitCode::cannotWrite,
            root,
            Text("nothing can be mounted in private, as this process is in a chroot, whose root is "
                 "no "
                 "mount. Run it outside of that, or mount that directory on itself before it is "
                 "entered (mount --bind).")
        );
    }
    const bool isOfSystem = (failed.error == ENOENT || failed.error == ENOTDIR) &&
                            ParentPath(failed.path) == root; // /run, /dev and /proc
    RefuseRoot(
        ExitCode::cannotWrite,
        failed.path.empty() ? root : failed.path,
        isOfSystem
            ? Text("a system has a directory there, which is no link, to mount on. Make it (mkdir)."
              )
            : Text("it cannot be mounted: %s.", Reason(failed.error))
    );
}

/// Process 1 of the namespace: it waits for all others, and takes the locks away after them.
std::optional<int> BeginInside(
    const std::string& root, const Shown& shown, bool isQuestion, KSYS::KHeldSignals& signals
) {
    const KSYS::FailedStep failed = KSYS::EnterPrivateRoot(root, shown.entries);
    if (failed.error != 0) {
        RefuseStep(failed, root);
    }
    KRootLocks locks(isQuestion ? KRootLocks::Use::Looked : KRootLocks::Use::Taken);
    pid_t child = 0;
    if (const unsigned error = KSYS::ForkProcess(child); error != 0) {
        throw KSetupFailure(
            ExitCode::internal, Text("no process can be started: %s", Reason(error))
        );
    }
    if (child == 0) {
        locks.Leave();
        signals.Release();
        return std::nullopt;
    }
    int status = 0;
    signals.WaitFor(child, status);
    locks.RemoveUnused();
    std::_Exit(WIFSIGNALED(status) ? ExitCode::signalBase + WTERMSIG(status) : WEXITSTATUS(status));
}

} // namespace

std::string FindImageRoot(const std::string& given) {
    std::error_code missing;
    const std::string root = fs::canonical(given, missing).string();
    struct stat status {};
    struct stat own {};
    unsigned failed = missing ? static_cast<unsigned>(missing.value())
                              : KSYS::ReadStatus(root, KSYS::LastLink::Keep, status);
    if (failed == 0 && !S_ISDIR(status.st_mode)) {
        failed = ENOTDIR;
    }
    if (failed != 0) {
        RefuseRoot(
            ExitCode::usage,
            given,
            Text(
                "%s. Behind --root stands the directory of a system that is to be.", Reason(failed)
            )
        );
    }
    if (KSYS::ReadStatus("/", KSYS::LastLink::Keep, own) == 0 && KSYS::IsSameFile(status, own)) {
        RefuseRoot(
            ExitCode::usage,
            given,
            Text("this is the root of the running machine. Leave --root out for that.")
        );
    }
    if (const std::string open = FindOpenWay(root); !open.empty()) {
        RefuseRoot(
            ExitCode::cannotWrite,
            open,
            Text(
                "others than root can change it, and with it what is in %s. Build the tree below "
                "directories of root's, as in /srv, or make this one root's (chown root, chmod "
                "go-w).",
                root
            )
        );
    }
    if (status.st_uid != 0 || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        RefuseRoot(
            ExitCode::cannotWrite,
            root,
            Text("others than root can change what is in it, which the root of a system does not "
                 "allow. Make it root's (chown root, chmod go-w).")
        );
    }
    return root;
}

std::optional<int> GoIntoImageRoot(KSetupArguments& arguments) {
    if (IsQuestion(arguments.command) && !KSYS::IsRoot()) {
        throw KSetupFailure(
            ExitCode::notRoot,
            Text("--root takes the right to mount, which root has. Try it with sudo.")
        );
    }
    RequireRoot();
    const std::string root = FindImageRoot(arguments.root);
    arguments.root = root;
    Shown shown = TakeAlong(arguments);
    RequireShowable(shown, root);
    LoadBeforehand();
    arguments.offlineServices = true;
    if (const unsigned failed = KSYS::SeparateProcesses(); failed != 0) {
        RefuseStep({failed, ""}, root);
    }
    KSYS::SetKnownProcessId(KSYS::KnownProcessId());
    KSYS::KHeldSignals signals;
    pid_t child = 0;
    if (const unsigned failed = KSYS::ForkProcess(child); failed != 0) {
        throw KSetupFailure(
            ExitCode::internal, Text("no process can be started: %s", Reason(failed))
        );
    }
    if (child == 0) {
        if (shown.unpacked) {
            shown.unpacked->Leave();
        }
        return BeginInside(root, shown, IsQuestion(arguments.command), signals);
    }
    int status = 0;
    signals.WaitFor(child, status);
    return WIFSIGNALED(status) ? ExitCode::signalBase + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace KSETUP
