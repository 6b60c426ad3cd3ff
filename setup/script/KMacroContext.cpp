// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/script/KMacroContext.h>
#include <sup++/SvcData.h>

#include <algorithm>
#include <new>
#include <utility>

namespace KSETUP {

KMacroContext::KMacroContext(const std::string& installedVersion) : paths(&installer) {
    if (!installedVersion.empty()) {
        SetInstalledVersion(installedVersion);
    }
}

void KMacroContext::SetInstalledVersion(const std::string& version) {
    if (SvcSetCustomKey(0, 0, KINS::Names::installedVersionMacro, version.c_str()) != 0) {
        throw std::bad_alloc(); // all that can fail
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
    return Expand(script.GetValue(
        KINS::Names::installSection, KINS::Names::defaultPathKey, KINS::Names::defaultProductPath
    ));
}

bool KMacroContext::IsKnown(const std::string& name) const {
    const std::string text = "$" + name + "$";
    static const std::vector<std::string> names = GetNames(); // the same in each run
    return std::find(names.begin(), names.end(), name) != names.end() ||
           std::find(added.begin(), added.end(), name) != added.end() || Expand(text) != text;
}

void KMacroContext::AddNames(std::vector<std::string> further) {
    added = std::move(further);
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
    for (const std::string& name : added) {
        const std::string text = "$" + name + "$";
        // Once more: a value may be behind another macro (ValueMacros.h).
        if (std::string value = Expand(Expand(text)); value != text) {
            known.emplace_back(name, std::move(value));
        }
    }
    return known;
}

} // namespace KSETUP
