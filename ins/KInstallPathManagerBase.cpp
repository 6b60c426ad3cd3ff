// SPDX-License-Identifier: MIT
#include <ins/KInstallPathManagerBase.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>

#include <cstring>

using KSUP::KString;
using KSUP::KUtil;

namespace KINS {

namespace {

/// Entries of the process-wide path map, each named as the macro that stands for it.
enum PathId : unsigned {
    pathSource = 2, // the support library's; all others are set here
    pathSourceWinX86 = 39,
    pathSourceWinX86_64 = 40,
    pathTargetWinX86_64 = 41,
    pathTargetWin = 42,
    pathTargetWinX86 = 43,
    pathTargetLin = 44,
    pathTargetLinX86_64 = 45,
    pathTargetLinX86 = 46,
    pathTargetMac = 47,
    pathTargetMacX86_64 = 48,
    pathTargetMacX86 = 49,
    pathSourceBinX86 = 50,
    pathSourceBinX86_64 = 51,
    pathTargetBinX86_64 = 52,
    pathTargetBinX86 = 53,
    pathTargetBin = 54,
    pathTargetConfig = 55,
    pathTargetResource = 56,
    pathTarget = 57,
    pathTargetDatabase = 58,
    pathTargetLog = 59,
    pathTargetTemp = 60,
};

KString Directory(const KString& path) {
    return KUtil::AppendPathSep(path, "/");
}

/// Entries for all systems are set on every system: a script may carry files for another one.
void SetForeignAndOwn(const KString& source, const KString& target) {
    const KString win = Directory("win");
    const KString lin = Directory("lin");
    const KString mac = Directory("mac");
    const KString x86 = Directory("x86");
    const KString x64 = Directory("x86_64");

    KUtil::SetPathMap(pathSourceWinX86, source + win + x86);
    KUtil::SetPathMap(pathSourceWinX86_64, source + win + x64);
    KUtil::SetPathMap(pathTargetWin, target + win);
    KUtil::SetPathMap(pathTargetWinX86, target + win + x86);
    KUtil::SetPathMap(pathTargetWinX86_64, target + win + x64);
    // "lin" and "mac" end without a separator, unlike "win": scripts rely on it.
    KUtil::SetPathMap(pathTargetLin, target + "lin");
    KUtil::SetPathMap(pathTargetLinX86, target + lin + x86);
    KUtil::SetPathMap(pathTargetLinX86_64, target + lin + x64);
    KUtil::SetPathMap(pathTargetMac, target + "mac");
    KUtil::SetPathMap(pathTargetMacX86, target + mac + x86);
    KUtil::SetPathMap(pathTargetMacX86_64, target + mac + x64);
}

/// The running system is what the global data record says, never what this was compiled for.
void SetRunningSystem(const KString& source, const KString& target) {
    const SvcGlobalData* global = SvcGetGlobalDataEx();
    const KString os = Directory(global->os);
    const KString x86 = Directory("x86");
    const KString x64 = Directory("x86_64");

    KUtil::SetPathMap(pathSourceBinX86, source + os + x86);
    KUtil::SetPathMap(pathSourceBinX86_64, source + os + x64);
    KUtil::SetPathMap(pathTargetBinX86, target + os + x86);
    KUtil::SetPathMap(pathTargetBinX86_64, target + os + x64);
    KUtil::SetPathMap(pathTargetBin, target + os + Directory(global->architecture));
}

void SetProductDirectories(const KString& target) {
    KUtil::SetPathMap(pathTargetConfig, target + Directory("config"));
    KUtil::SetPathMap(pathTargetTemp, target + Directory("temp"));
    KUtil::SetPathMap(pathTargetDatabase, target + Directory("database"));
    KUtil::SetPathMap(pathTargetLog, target + Directory("log"));
    KUtil::SetPathMap(pathTargetResource, target + Directory("resource"));
    KUtil::SetPathMap(pathTarget, target);
}

} // namespace

KInstallPathManagerBase::KInstallPathManagerBase(KInstaller* installer)
    : KBase("KInstallPathManager", true),
      owner(installer) {}

KInstallPathManagerBase::~KInstallPathManagerBase() = default;

void KInstallPathManagerBase::Initialize(const KString& installPath) {
    const KString source = Directory(KUtil::GetPathMap(pathSource));
    const KString target = Directory(installPath);
    // The order is part of the contract: where a call throws, the entries before it are the new
    // ones.
    SetForeignAndOwn(source, target);
    SetRunningSystem(source, target);
    SetProductDirectories(target);
}

void KInstallPathManagerBase::AddCustomMacro(const KString& name, const KString& value) {
    const KSUP::KMutex::KLock hold(lock);
    customMacros.AddCustomMacro(name, value);
}

KString KInstallPathManagerBase::ExpandMacros(const KString& text) const {
    if (std::strchr(text.c_str(), '$') == nullptr) { // which needs no lock, as most fields of rules
        return text;
    }
    const KSUP::KMutex::KLock hold(lock);
    return customMacros.ExpandMacros(text);
}

} // namespace KINS
