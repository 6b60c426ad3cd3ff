// SPDX-License-Identifier: MIT
//
// A rule type of one's own, added to those of the script: it writes a file with what was installed.
// The program runs the rules itself, with a rule manager that it made, and writes the record.

#include <ins/KInstallRuleManager.h>
#include <ins/KInstaller.h>
#include <ins/unx/lin/KInstallPathManager.h>
#include <sup++/KError.h>
#include <sup++/KErrorSource.h>
#include <sup++/KProfile.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>
#include <sup++/SvcFile.h>

#include <iostream>

namespace {

constexpr KSUP::KErrorSource errorSource{"own_rule/KManifestRule"};

/// `path,text`: puts the text into section [installed] of the profile at the path.
class KManifestRule : public KINS::KInstallRule {
  public:
    KManifestRule(KINS::KInstallRuleManagerBase* owner, const KSUP::KString& line)
        : KInstallRule(owner, line) {}

    /// When the rule is added. What it throws stops the loading; nothing has run by then.
    void ParseRule(const std::vector<KSUP::KString>& fields) override {
        if (fields.size() != 2) {
            errorSource.Raise(KSUP::TraceLevel::rule, KSUP::ErrorCode::malformedRule, ruleLine);
        }
        path = ExpandMacros(fields[0]);
        text = ExpandMacros(fields[1]);
    }

    /// When its turn comes, without any lock. What it throws ends the run.
    void Execute() override {
        manager->SetCurrentRuleStatus("Writing " + path);
        KSUP::KProfile manifest(path);
        manifest.PutString("installed", "what", text);
    }

    KSUP::KString Description() const override { return "Manifest " + path; }

  private:
    KSUP::KString path;
    KSUP::KString text;
};

void Install(const KSUP::KString& kit) {
    KINS::KInstaller installer; // for its script, log and macros
    installer.Initialize(kit + "install.ini");
    KINS::KInstallPathManager paths(&installer);
    paths.Initialize(installer.GetDefaultProductPath());

    KINS::KInstallRuleManager rules(&installer);
    rules.SetCallback([](const KSUP::KString& status, double) {
        std::cout << status.c_str() << "\n";
    });
    rules.LoadSection("install");
    rules.AddRule(new KManifestRule(&rules, "$pathTargetConfig$manifest.ini,$product$ $verInfo$"));
    // From here on the engine remembers which disks are written to: the record, which brings what
    // was written to them first, never says more than they hold.
    if (const unsigned status = SvcBeginWriteTracking(); status != 0) {
        errorSource.RaiseSystem(status, "write tracking");
    }
    rules.ExecuteRules();
    paths.PutInstalledProductInformation(
        rules.ExpandMacros("$verInfo$"), SvcGetOEMDataEx()->buildNumber
    );
    static_cast<void>(SvcEndWriteTracking()); // nothing is left to do
    std::cout << rules.GetCompletedCount() << " of " << rules.GetRuleCount() << " rules\n";
}

} // namespace

int main(int argc, char** argv) try {
    const KSUP::KString kit = KSUP::KUtil::AppendPathSep(argc > 1 ? argv[1] : ".", "/");
    if (SvcLoadProductData((kit + "product.ini").c_str()) != 0) {
        return 66;
    }
    KSUP::KUtil::SetPathMap(2, kit);
    Install(kit);
} catch (const KSUP::KError& error) {
    std::cerr << error.GetSummary().c_str() << "\n";
    return 1;
}
