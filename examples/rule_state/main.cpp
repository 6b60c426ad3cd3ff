// SPDX-License-Identifier: MIT
//
// A rule manager of one's own: it knows one more keyword, so that scripts can use it,
//
//     module=NAME
//
// and the rules of that type share a value, the list of the modules so far, from which the manager
// writes a file when all rules are done.

#include <ins/KInstallRuleManager.h>
#include <ins/KInstaller.h>
#include <ins/unx/lin/KInstallPathManager.h>
#include <sup++/KError.h>
#include <sup++/KErrorCode.h>
#include <sup++/KProfile.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>

#include <iostream>

namespace {

class KModuleRule : public KINS::KInstallRule {
  public:
    KModuleRule(KINS::KInstallRuleManagerBase* owner, const KSUP::KString& line)
        : KInstallRule(owner, ExpandLine(owner, line)) {}

    void Execute() override {
        manager->SetCurrentRuleStatus("Adding module " + ruleLine);
        const KSUP::KString modules = GetModules(*manager, *this);
        manager->SetRuleState(this, modules.IsEmpty() ? ruleLine : modules + " " + ruleLine);
    }
    KSUP::KString Description() const override { return "Module " + ruleLine; }

    /// What the rules of this class have left so far; empty before the first one.
    static KSUP::KString
    GetModules(const KINS::KInstallRuleManagerBase& rules, const KModuleRule& any) {
        try {
            return rules.GetRuleState(&any).GetString();
        } catch (const KSUP::KError& error) {
            if (error.GetCode() != KSUP::ErrorCode::notFound) {
                throw;
            }
            return "";
        }
    }

  private:
    static KSUP::KString
    ExpandLine(const KINS::KInstallRuleManagerBase* owner, const KSUP::KString& line) {
        return owner->ExpandMacros(line);
    }
};

class KModuleManager : public KINS::KInstallRuleManager {
  public:
    explicit KModuleManager(KINS::KInstaller* owner) : KInstallRuleManager(owner) {}

    using KInstallRuleManager::AddRule; // the one that takes a finished rule
    /// For every line of the script, those of included sections too.
    void AddRule(const KSUP::KString& type, const KSUP::KString& line) override {
        if (type == "module") {
            AddRule(new KModuleRule(this, line));
        } else {
            KInstallRuleManager::AddRule(type, line);
        }
    }

    void ExecuteRules() override {
        KInstallRuleManager::ExecuteRules();
        // The state belongs to the class: any object of it asks for it.
        const KModuleRule any(this, "");
        KSUP::KProfile list(ExpandMacros("$pathTargetConfig$modules.ini"));
        list.PutString("modules", "order", KModuleRule::GetModules(*this, any));
    }
};

} // namespace

int main(int argc, char** argv) try {
    const KSUP::KString kit = KSUP::KUtil::AppendPathSep(argc > 1 ? argv[1] : ".", "/");
    if (SvcLoadProductData((kit + "product.ini").c_str()) != 0) {
        return 66;
    }
    KSUP::KUtil::SetPathMap(2, kit);
    KINS::KInstaller installer;
    installer.Initialize(kit + "install.ini");
    KINS::KInstallPathManager paths(&installer);
    paths.Initialize(installer.GetDefaultProductPath());
    KModuleManager rules(&installer);
    rules.SetCallback([](const KSUP::KString& status, double) {
        std::cout << status.c_str() << "\n";
    });
    rules.LoadSection("install");
    rules.ExecuteRules();
} catch (const KSUP::KError& error) {
    std::cerr << error.GetSummary().c_str() << "\n";
    return 1;
}
