// SPDX-License-Identifier: MIT
//
// A rule type of one's own, behind a keyword of the script's: it writes a file with what was
// installed. The installer runs it among the others, with its thread, log, record and cancellation.

#include <ins/KInstaller.h>
#include <sup++/KError.h>
#include <sup++/KErrorSource.h>
#include <sup++/KProfile.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>

#include <iostream>
#include <memory>

namespace {

constexpr KSUP::KErrorSource errorSource{"own_rule/KManifestRule"};

/// `manifest=path,text`: puts the text into section [installed] of the profile at the path.
class KManifestRule : public KINS::KInstallRule {
  public:
    KManifestRule(KINS::KInstallRuleManagerBase& owner, const KSUP::KString& line)
        : KInstallRule(&owner, line) {}

    /// While the script loads. What it throws stops the loading; nothing has run by then.
    void ParseRule(const std::vector<KSUP::KString>& fields) override {
        if (fields.size() != 2) {
            errorSource.Raise(KSUP::TraceLevel::rule, KSUP::ErrorCode::malformedRule, ruleLine);
        }
        path = ExpandMacros(fields[0]);
        text = ExpandMacros(fields[1]);
    }

    /// When its turn comes, on the worker thread, without any lock. What it throws ends the run.
    void Execute() override {
        manager->SetCurrentTarget(KSUP::KOperation::Write, path);
        manager->SetCurrentRuleStatus("Writing " + path);
        KSUP::KProfile(path).PutString("installed", "what", text);
    }

    KSUP::KString Description() const override { return "Manifest " + path; }

  private:
    KSUP::KString path;
    KSUP::KString text;
};

/// Asked first for each line of the script; null leaves it to the engine.
std::unique_ptr<KINS::KInstallRule> MakeRule(
    KINS::KInstallRuleManagerBase& manager, const KSUP::KString& type, const KSUP::KString& line
) {
    return type == "manifest" ? std::make_unique<KManifestRule>(manager, line) : nullptr;
}

} // namespace

int main(int argc, char** argv) try {
    const KSUP::KString kit = KSUP::KUtil::AppendPathSep(argc > 1 ? argv[1] : ".", "/");
    if (SvcLoadProductData((kit + "product.ini").c_str()) != 0) {
        return 66;
    }
    KSUP::KUtil::SetPathMap(2, kit);
    KINS::KInstaller installer;
    installer.SetRuleFactory(MakeRule);
    installer.SetCallback([](const KSUP::KString& status, double) {
        std::cout << status.c_str() << "\n";
    });
    installer.Initialize(kit + "install.ini");
    installer.AutoInstall();
    std::cout << installer.GetCompletedCount() << " of " << installer.GetMaxCount() << " rules\n";
} catch (const KSUP::KError& error) {
    std::cerr << error.GetSummary().c_str() << "\n";
    return 1;
}
