// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupLogTail.h>
#include <setup/KSetupRun.h>
#include <setup/ProductPath.h>
#include <sup++/KErrorCode.h>
#include <sup++/KFileBase.h>
#include <sup++/KUtil.h>
#include <sup++/Svc.h>
#include <sup++/SvcProcess.h>

#include <array>
#include <climits>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <string_view>
#include <system_error>

#include <unistd.h>

namespace KSETUP {

namespace {

constexpr std::size_t logLinesShown = 5;
constexpr unsigned runningState = 4; // of a service

struct Record {
    KSUP::KString path;
    KSUP::KString version;
    unsigned buildNumber = 0;
};

Record ReadRecord(const KINS::KInstaller& installer) {
    Record record;
    installer.GetInstalledProductInformation(record.path, record.version, record.buildNumber);
    return record;
}

std::string Text(const KSUP::KString& text) {
    return text.c_str();
}

std::string VersionText(const Record& record) {
    return Text(KSetupKit::GetProductName()) + " " + KSetupProgress::Printable(record.version) +
           " (build " + std::to_string(record.buildNumber) + ")";
}

/// An error as its reader needs it: the information says what and where in most cases.
std::string InWords(const KSUP::KError& error) {
    if (error.HasInfo()) {
        const std::string info = KSetupProgress::Printable(error.GetInfo().GetString());
        return error.GetCode() == KSUP::ErrorCode::malformedRule
                   ? "The script has a line that is no rule: " + info
                   : info;
    }
    // Without information the place tells what the number means: our own codes are also errno's.
    const std::string_view place(error.GetFile());
    if (place == "ins/unx/lin/KInstallPathManager") {
        return error.GetCode() == KSUP::ErrorCode::notFound
                   ? "The product's link is missing or no link. The script has to make "
                     "/etc/SERVICE/SERVICE, a symbolic link to a program three levels below the "
                     "product path."
                   : "The product's link /etc/SERVICE/SERVICE does not lead to an absolute path.";
    }
    if (place == "sup++/KProfile") {
        return "The product's configuration file is missing, so there is no place for the record. "
               "The script has to make it, for instance with profile=put.";
    }
    if (place == "ins/KProcessRuleBase") {
        return "A process could not be started or stopped. The last line of the log says why.";
    }
    if (place == "ins/KFileRule") { // a deletion, whose code is the system's
        return std::generic_category().message(static_cast<int>(error.GetCode()));
    }
    return error.GetCode() == KSUP::ErrorCode::malformedRule
               ? "The script has a line that is no rule."
               : Text(error.GetSummary());
}

/// Whether a service call failed: the error has its status, the words are kept elsewhere.
bool IsOfServiceCall(const KSUP::KError& error) {
    return std::string_view(error.GetFile()) == "ins/KServiceRule" &&
           error.GetCode() != KSUP::ErrorCode::malformedRule;
}

/// What was left for the next boot, as a line for the reader; empty without any.
std::string LeftServices() {
    std::string left;
    std::array<char, NAME_MAX + 1> name{};
    unsigned state = 0;
    for (unsigned cursor = 0;
         SvcEnumerateLeftServices(0, &cursor, name.size(), name.data(), &state) == 0;) {
        left += std::string(left.empty() ? "" : ", ") +
                (state == runningState ? "start " : "stop ") + name.data();
    }
    return left.empty()
               ? ""
               : "systemd does not run here, so this is left for the next boot: " + left + ".\n";
}

/// In bytes, 0 for a file that is missing.
std::uintmax_t SizeOf(const KSUP::KString& path) {
    std::error_code failed;
    const std::uintmax_t size = std::filesystem::file_size(path.c_str(), failed);
    return failed ? 0 : size;
}

void RefuseUnlessRoot() {
    if (::geteuid() != 0) {
        throw KSetupFailure(
            ExitCode::notRoot, "Only root can install and remove products. Try it with sudo."
        );
    }
}

} // namespace

int KSetupRun::Install(const std::string& givenPath, bool offlineServices) {
    RefuseUnlessRoot();
    installs = true;
    if (SvcSetOfflineServices(0, offlineServices ? 1 : 0) != 0) {
        throw KSetupFailure(ExitCode::internal, SvcGetServiceErrorText());
    }
    Prepare();
    const std::string path = ChooseProductPath(givenPath);
    Load(path);
    return Watch(path);
}

int KSetupRun::Remove() {
    RefuseUnlessRoot();
    installs = false;
    Prepare();
    if (!installer.IsProductInstalled()) {
        std::cout << KSetupKit::GetProductName().c_str()
                  << " is not installed: there is nothing to remove.\n";
        return ExitCode::done;
    }
    const std::string path = ChooseProductPath("");
    Load(path);
    return Watch(path);
}

void KSetupRun::Prepare() {
    try {
        installer.Initialize(kit.GetScript());
    } catch (const KSUP::KError& error) {
        throw KSetupFailure(ExitCode::noKit, InWords(error));
    }
    NameCommandOutput();
    installer.SetCallback([this](const KSUP::KString& status, double percent) {
        // The first status of a rule has no percentage: a chunk of a copy needs no look.
        if (percent == KINS::noPercentage) {
            workerMaxCount = workerMaxCount != 0 ? workerMaxCount : installer.GetMaxCount();
            progress.RuleReports(installer.GetCompletedCount(), workerMaxCount, status);
        }
    });
}

void KSetupRun::NameCommandOutput() {
    const KSUP::KString& log = installer.GetLog().GetPath();
    commandOutput = KSUP::KUtil::AppendPathSep(KSUP::KUtil::RemoveFileFromPath(log, "/"), "/") +
                    installer.ExpandMacros("$product$ Setup Commands.txt");
    commandOutputSize = SizeOf(commandOutput);
    if (const unsigned status = SvcSetCommandOutput(commandOutput.c_str()); status != 0) {
        throw KSetupFailure(
            ExitCode::internal, std::generic_category().message(static_cast<int>(status))
        );
    }
}

std::string KSetupRun::CommandOutputLine() const {
    // Another size, not only a larger one: somebody may have emptied the file meanwhile.
    const std::uintmax_t size = SizeOf(commandOutput);
    return size == 0 || size == commandOutputSize
               ? ""
               : "What commands wrote: " + Text(commandOutput) + "\n";
}

std::string KSetupRun::ChooseProductPath(const std::string& givenPath) const {
    const bool installed = installer.IsProductInstalled();
    const std::string recorded = installed ? Text(ReadRecord(installer).path) : std::string();
    const std::string path = !givenPath.empty() ? givenPath
                             : installed        ? recorded
                                                : Text(installer.GetDefaultProductPath());
    if (const std::string why = WhyNotAProductPath(path); !why.empty()) {
        const bool given = !givenPath.empty();
        throw KSetupFailure(
            given ? ExitCode::usage : ExitCode::malformedScript,
            "The product path \"" + path + "\" cannot be used: " + why +
                (given       ? ". Give a directory of the product's own."
                 : installed ? ". The record of the installed product is wrong; look at "
                               "/etc/SERVICE/SERVICE."
                             : ". Give a directory of the product's own, or mend "
                               "\"defaultPath.$os$\" in the script.")
        );
    }
    const auto bare = [](const std::string& text) {
        return Text(KSUP::KUtil::RemovePathSep(text.c_str(), "/"));
    };
    if (installed && bare(path) != bare(recorded)) {
        throw KSetupFailure(
            ExitCode::usage,
            Text(KSetupKit::GetProductName()) + " is installed in " + recorded +
                ". Leave the path out to install over it, or remove it first."
        );
    }
    return path;
}

void KSetupRun::Load(const std::string& path) {
    try {
        if (installs) {
            installer.StartInstall(path.c_str());
        } else {
            installer.StartUninstall(path.c_str());
        }
    } catch (const KSUP::KError& error) {
        const bool malformed = error.GetCode() == KSUP::ErrorCode::malformedRule;
        throw KSetupFailure(
            malformed ? ExitCode::malformedScript : ExitCode::internal,
            Text(kit.GetScript()) + ": " + InWords(error) + " Nothing was changed.\n" + LogEnd()
        );
    }
}

int KSetupRun::Watch(const std::string& path) {
    try {
        maxCount = installer.GetMaxCount();
        while (!installer.IsComplete()) {
            SvcPollingDispatch();
            if (signals.Take() != 0) {
                AnswerSignal();
            }
            if (progress.IsTerminal()) {
                progress.Draw(
                    installer.GetCompletedCount(), maxCount, installer.GetStatus(), false
                );
            }
        }
    } catch (const KSUP::KError& error) {
        return ReportError(error, path);
    }
    return ReportDone(path);
}

void KSetupRun::AnswerSignal() {
    progress.Finish();
    // Said before anything is asked: the run may hold the answer up.
    std::cout << (installer.IsCancelled() ? "Still stopping." : "Stopping.") << std::flush;
    installer.Stop();
    std::cout << " Waiting for: " << KSetupProgress::Printable(installer.GetStatus()) << std::endl;
}

int KSetupRun::ReportDone(const std::string& path) {
    const unsigned done = installer.GetCompletedCount();
    progress.Draw(done, maxCount, installer.GetStatus(), true);
    progress.Finish();
    if (installs) {
        std::cout << VersionText(ReadRecord(installer)) << " is installed in " << path << ".\n";
    } else {
        if (installer.IsProductInstalled()) {
            std::cerr
                << KSetupKit::GetProductName().c_str()
                << " still counts as installed: the script's section [remove] does not delete "
                   "the product's link in /etc. Everything else that it names is removed.\n";
            return ExitCode::ruleFailed;
        }
        std::cout << KSetupKit::GetProductName().c_str() << " is removed from " << path << ".\n";
        if (KSUP::KFileBase::DoesFileExist(path.c_str())) {
            std::cout
                << "The directory is still there: it holds what the script does not delete.\n";
        }
    }
    std::cout << LeftServices() << done
              << " rules done. Log: " << installer.GetLog().GetPath().c_str() << "\n"
              << CommandOutputLine() << std::flush;
    return ExitCode::done;
}

std::string KSetupRun::LogEnd() {
    const KSUP::KString& path = installer.GetLog().GetPath();
    std::string text = "Log: " + Text(path) + ", which ends with";
    for (const std::string& line : KSetupLogTail(path.c_str()).GetLast(logLinesShown)) {
        text += "\n    " + KSetupProgress::Printable(line.c_str());
    }
    return text;
}

int KSetupRun::ReportError(const KSUP::KError& error, const std::string& path) {
    const unsigned done = installer.GetCompletedCount();
    progress.Draw(done, maxCount, installer.GetStatus(), true);
    progress.Finish();
    const bool cancelled = error.GetCode() == KSUP::ErrorCode::cancelled;
    const char* verb = installs ? "Installing" : "Removing";
    std::ostream& out = std::cerr;
    if (cancelled) {
        out << verb << " was stopped on request after " << done << " of " << maxCount
            << " rules. What was done stays in " << path << "; run it again to go on.\n"
            << "Log: " << installer.GetLog().GetPath().c_str() << "\n"
            << CommandOutputLine();
    } else {
        const std::string words = IsOfServiceCall(error)
                                      ? KSetupProgress::Printable(serviceReason.Get().c_str())
                                      : InWords(error);
        out << verb << " failed after " << done << " of " << maxCount << " rules.\n"
            << "Error " << error.GetCode() << ": " << words << "\n";
        if (done == maxCount) {
            out << "All rules were done; writing the record of the product failed.\n";
        } else {
            out << "Rule: " << KSetupLogTail(installer.GetLog().GetPath().c_str()).GetLastRule()
                << "\n";
        }
        out << LogEnd() << "\n"
            << CommandOutputLine() << "What was done stays in " << path
            << ". Mend the cause and run it again.\n";
    }
    out.flush();
    return cancelled
               ? ExitCode::signalBase + (signals.GetFirst() != 0 ? signals.GetFirst() : SIGINT)
               : ExitCode::ruleFailed;
}

int ReportStatus() {
    const KINS::KInstaller installer;
    if (!installer.IsProductInstalled()) {
        std::cout << KSetupKit::GetProductName().c_str() << " is not installed.\n";
        return ExitCode::notInstalled;
    }
    const Record record = ReadRecord(installer);
    std::cout << VersionText(record) << " is installed in "
              << KSetupProgress::Printable(record.path) << ".\n";
    return ExitCode::done;
}

} // namespace KSETUP
