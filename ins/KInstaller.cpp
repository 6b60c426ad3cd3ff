// SPDX-License-Identifier: MIT
#include <ins/KInstaller.h>
#include <ins/Names.h>
#include <sup++/KError.h>
#include <sup++/KErrorSource.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>
#include <sup++/SvcDispatch.h>
#include <sup++/SvcFile.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include <unistd.h>

using KSUP::KLogPrefix;
using KSUP::KLogTypes;
using KSUP::KString;
using KSUP::KUtil;

namespace KINS {

namespace {

constexpr KSUP::KErrorSource errorSource{"ins/KInstaller"};

/// Guards the scripts of all installers, while one is assigned or copied: a leaf.
std::mutex scriptGuard;

struct WriteTrackingEnd {
    WriteTrackingEnd() = default;
    WriteTrackingEnd(const WriteTrackingEnd&) = delete;
    WriteTrackingEnd& operator=(const WriteTrackingEnd&) = delete;
    ~WriteTrackingEnd() { static_cast<void>(SvcEndWriteTracking()); } // nothing is left to do
};

} // namespace

KInstaller::KInstaller()
    : KBase("KInstaller", true),
      ruleManager(this),
      pathManager(this),
      workerThread("Ins++ installation thread") {}

KInstaller::~KInstaller() {
    // One load is taken back, always. Where Initialize did not come to make it, it is made now:
    // loads are counted, and that of another installer is not ours to take.
    if (messagesAreLoaded || PrvInsLoadMessage() == 0) {
        PrvInsUnloadMessage();
    }
}

KString KInstaller::LogName() const {
    return KUtil::GetClassNameFromTypeInfo(typeid(*this));
}

void KInstaller::SetCallback(StatusCallback callback) {
    ruleManager.SetCallback(std::move(callback));
}

void KInstaller::SetRuleFactory(RuleFactory factory) {
    ruleManager.SetRuleFactory(std::move(factory));
}

void KInstaller::SetRunListener(RunListener listener) {
    ruleManager.SetRunListener(std::move(listener));
}

void KInstaller::Initialize(const KString& scriptPath) {
    // Called without a wrapper: it cannot fail.
    if (::geteuid() != 0) {
        errorSource.Raise(KSUP::TraceLevel::setup, KSUP::ErrorCode::notSuperuser);
    }
    const unsigned status = PrvInsLoadMessage();
    if (status != 0) {
        errorSource.Raise(KSUP::TraceLevel::setup, status);
    }
    if (messagesAreLoaded.exchange(true)) { // by a former call that failed behind it
        PrvInsUnloadMessage();
    }
    log.Open(GetSetupLogPath());
    OpenScript(scriptPath);
    if (IsProductInstalled()) {
        AdoptInstalledProduct();
    }
}

void KInstaller::OpenScript(const KString& scriptPath) {
    log << KLogPrefix(LogName()) << "Loading install script " << scriptPath << KLogTypes::EndEntry;
    try {
        KSUP::KProfile opened;
        opened.Open(scriptPath);
        const std::lock_guard hold(scriptGuard);
        installProfile = opened;
    } catch (const KSUP::KError& error) {
        log << KLogPrefix(LogName()) << "Failed to open install script " << scriptPath << " "
            << error << KLogTypes::EndEntry;
        throw;
    }
}

void KInstaller::AdoptInstalledProduct() {
    KString path;
    KString version;
    unsigned int buildNumber = 0;
    GetInstalledProductInformation(path, version, buildNumber);
    const KString text = version + "-" + KUtil::NumberToString(buildNumber, false);
    const unsigned status = SvcSetCustomKey(0, 0, Names::installedVersionMacro, text.c_str());
    if (status != 0) {
        // Only the macro is missing then, and few scripts use it.
        log << KLogPrefix(LogName()) << "Failed to set targetVerInfo " << KLogTypes::StatusCode
            << status << KLogTypes::EndEntry;
    }
    pathManager.Initialize(path);
}

void KInstaller::Start(const KString& productPath, MODE runMode) {
    if (workerThread.IsThreadActive()) { // its rules are not to be added to
        errorSource.Raise(
            KSUP::TraceLevel::setup, KSUP::ErrorCode::invalidArgument, "a run is going on"
        );
    }
    // The default path is taken as the script holds it, unlike GetDefaultProductPath's. That is
    // meant.
    const KString path = productPath.IsEmpty() ? pathManager.GetDefaultProductPath() : productPath;
    mode = runMode; // a refused mode too, so that the caller can ask what was refused
    switch (runMode) {
    case ModeInstall:
    case ModeUpgrade:
    case ModeInstall4:
    case ModeInstall5:
        pathManager.Initialize(path);
        ruleManager.LoadSection(Names::installSection);
        ruleManager.LoadCommandLineRules();
        workerThread.Start([this] { InstallThread(); });
        break;
    case ModeUninstall:
        pathManager.Initialize(path);
        ruleManager.LoadSection(Names::removeSection);
        workerThread.Start([this] { ruleManager.ExecuteRules(); });
        break;
    case ModeNone:
    default:
        errorSource.Raise(KSUP::TraceLevel::setup, KSUP::ErrorCode::invalidArgument);
    }
}

void KInstaller::StartInstall(const KString& productPath) {
    if (productPath.IsEmpty()) {
        errorSource.Raise(KSUP::TraceLevel::setup, KSUP::ErrorCode::invalidArgument);
    }
    Start(productPath, IsProductInstalled() ? ModeUpgrade : ModeInstall);
}

void KInstaller::StartUninstall(const KString& productPath) {
    if (productPath.IsEmpty()) {
        errorSource.Raise(KSUP::TraceLevel::setup, KSUP::ErrorCode::invalidArgument);
    }
    Start(productPath, ModeUninstall);
}

void KInstaller::AutoInstall() {
    StartInstall(IsProductInstalled() ? GetInstalledProductPath() : GetDefaultProductPath());
    WaitForEnd();
}

void KInstaller::AutoUninstall() {
    if (!IsProductInstalled()) {
        return;
    }
    StartUninstall(GetInstalledProductPath());
    WaitForEnd();
}

void KInstaller::WaitForEnd() {
    while (!IsComplete()) {
        SvcPollingDispatch();
    }
}

KString KInstaller::GetStatus() const {
    return ruleManager.GetCurrentRuleStatus();
}

KString KInstaller::GetCurrentTarget() const {
    return ruleManager.GetCurrentTarget();
}

unsigned int KInstaller::GetMaxCount() const {
    return ruleManager.GetRuleCount();
}

unsigned int KInstaller::GetCompletedCount() const {
    return ruleManager.GetCompletedCount();
}

MODE KInstaller::GetMode() const noexcept {
    return mode;
}

bool KInstaller::IsCancelled() const noexcept {
    return workerThread.IsTerminated();
}

bool KInstaller::IsComplete() {
    if (workerThread.IsThreadActive()) {
        return false;
    }
    workerThread.CheckRunError();
    return true;
}

void KInstaller::Stop() {
    workerThread.Stop(false);
}

bool KInstaller::IsProductInstalled() const {
    return pathManager.IsProductInstalled();
}

void KInstaller::GetInstalledProductInformation(
    KString& path, KString& version, unsigned int& buildNumber
) const {
    pathManager.GetInstalledProductInformation(path, version, buildNumber);
}

KString KInstaller::GetInstalledProductPath() const {
    KString path;
    KString version;
    unsigned int buildNumber = 0;
    GetInstalledProductInformation(path, version, buildNumber);
    return path;
}

KString KInstaller::GetDefaultProductPath() const {
    return ExpandMacros(pathManager.GetDefaultProductPath());
}

KString KInstaller::ExpandMacros(const KString& text) const {
    return pathManager.ExpandMacros(text);
}

std::vector<KString> KInstaller::GetMacroNames() {
    std::vector<KString> names = KSUP::KCustomMacro::GetBuiltInNames();
    names.emplace_back(Names::programEndingMacro);
    names.emplace_back(Names::installedVersionMacro);
    std::sort(names.begin(), names.end());
    return names;
}

KString KInstaller::GetSetupLogPath() const {
    return KUtil::GetPathName(Names::logDirectoryId, ExpandMacros(Names::setupLogName));
}

KSUP::KProfile KInstaller::GetInstallProfile() const {
    const std::lock_guard hold(scriptGuard);
    return installProfile;
}

KSUP::KLog& KInstaller::GetLog() noexcept {
    return log;
}

void KInstaller::InstallThread() {
    const unsigned status = SvcBeginWriteTracking();
    if (status != 0) {
        errorSource.RaiseAs(
            {KSUP::KErrorKind::System, KSUP::KOperation::None, {}, {}},
            KSUP::TraceLevel::setup,
            status,
            "cannot keep track of what is written to the disk"
        );
    }
    const WriteTrackingEnd endAfterRecord;
    ruleManager.ExecuteRules();
    const unsigned int buildNumber = SvcGetOEMDataEx()->buildNumber;
    pathManager.PutInstalledProductInformation(ExpandMacros("$verInfo$"), buildNumber);
}

} // namespace KINS
