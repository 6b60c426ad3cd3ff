// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/script/KMacroContext.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>

#include <algorithm>

namespace KSETUP {

KMacroContext::KMacroContext() : paths(&installer) {
    if (installer.IsProductInstalled()) {
        KSUP::KString path;
        KSUP::KString version;
        unsigned buildNumber = 0;
        installer.GetInstalledProductInformation(path, version, buildNumber);
        const KSUP::KString text = version + "-" + KSUP::KUtil::NumberToString(buildNumber, false);
        // A failure leaves the macro unknown, as it does for a run.
        static_cast<void>(SvcSetCustomKey(0, 0, KINS::Names::installedVersionMacro, text.c_str()));
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
    return installer.IsProductInstalled() ? installer.GetInstalledProductPath().c_str()
                                          : Expand(script.GetValue(
                                                KINS::Names::installSection,
                                                KINS::Names::defaultPathKey,
                                                KINS::Names::defaultProductPath
                                            ));
}

bool KMacroContext::IsKnown(const std::string& name) const {
    const std::string text = "$" + name + "$";
    const std::vector<std::string> names = GetNames();
    return std::find(names.begin(), names.end(), name) != names.end() || Expand(text) != text;
}

std::vector<std::string> KMacroContext::GetNames() {
    std::vector<std::string> names;
    for (const KSUP::KString& name : KINS::KInstaller::GetMacroNames()) {
        names.emplace_back(name.c_str());
    }
    return names;
}

std::vector<std::pair<std::string, std::string>> KMacroContext::List() const {
    std::vector<std::pair<std::string, std::string>> known;
    for (const std::string& name : GetNames()) {
        const std::string text = "$" + name + "$";
        if (std::string value = Expand(text); value != text) {
            known.emplace_back(name, std::move(value));
        }
    }
    return known;
}

} // namespace KSETUP
