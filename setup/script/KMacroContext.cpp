// SPDX-License-Identifier: MIT
#include <setup/script/KMacroContext.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>

#include <algorithm>
#include <array>

namespace KSETUP {

namespace {

constexpr char defaultProductPath[] = "/usr/local/korvane/dps"; // the engine's own

/// All names that the engine can know; docs/script.md explains them.
constexpr std::array names = std::to_array<const char*>({
    "arch",
    "binext",
    "buildNumber",
    "iniFile",
    "os",
    "pathLog",
    "pathSource",
    "pathSourceBinX86",
    "pathSourceBinX86_64",
    "pathSourceWinX86",
    "pathSourceWinX86_64",
    "pathTarget",
    "pathTargetBin",
    "pathTargetBinX86",
    "pathTargetBinX86_64",
    "pathTargetConfig",
    "pathTargetDatabase",
    "pathTargetLin",
    "pathTargetLinX86",
    "pathTargetLinX86_64",
    "pathTargetLog",
    "pathTargetMac",
    "pathTargetMacX86",
    "pathTargetMacX86_64",
    "pathTargetResource",
    "pathTargetTemp",
    "pathTargetWin",
    "pathTargetWinX86",
    "pathTargetWinX86_64",
    "product",
    "serviceName",
    "targetVerInfo",
    "verInfo",
});

} // namespace

KMacroContext::KMacroContext() : paths(&installer) {
    if (installer.IsProductInstalled()) {
        KSUP::KString path;
        KSUP::KString version;
        unsigned buildNumber = 0;
        installer.GetInstalledProductInformation(path, version, buildNumber);
        const KSUP::KString text = version + "-" + KSUP::KUtil::NumberToString(buildNumber, false);
        // A failure leaves the macro unknown, as it does for a run.
        static_cast<void>(SvcSetCustomKey(0, 0, "targetVerInfo", text.c_str()));
    }
}

void KMacroContext::SetProductPath(const std::string& productPath) {
    paths.Initialize(productPath);
}

std::string KMacroContext::Expand(const std::string& text) const {
    return paths.ExpandMacros(text).c_str();
}

MacroExpander KMacroContext::GetExpander() const {
    return [this](const KSUP::KString& text) { return paths.ExpandMacros(text); };
}

std::string KMacroContext::ProposePath(const KScript& script) const {
    return installer.IsProductInstalled()
               ? installer.GetInstalledProductPath().c_str()
               : Expand(script.GetValue("install", "defaultPath.$os$", defaultProductPath));
}

bool KMacroContext::IsKnown(const std::string& name) const {
    const std::string text = "$" + name + "$";
    return std::find(names.begin(), names.end(), name) != names.end() || Expand(text) != text;
}

std::vector<std::string> KMacroContext::GetNames() {
    return {names.begin(), names.end()};
}

std::vector<std::pair<std::string, std::string>> KMacroContext::List() const {
    std::vector<std::pair<std::string, std::string>> known;
    for (const char* name : names) {
        const std::string text = std::string("$") + name + "$";
        if (std::string value = Expand(text); value != text) {
            known.emplace_back(name, std::move(value));
        }
    }
    return known;
}

} // namespace KSETUP
