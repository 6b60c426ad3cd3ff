// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/plan/KeptFiles.h>
#include <setup/plan/ValueMacros.h>
#include <setup/run/KeepKit.h>
#include <setup/script/KMacroContext.h>
#include <setup/script/KScript.h>
#include <setup/state/KKeptKit.h>

namespace KSETUP {

void KeepKit(
    const KPlannedRun& planned, const std::string& installedVersion, const KDigests& sealed
) {
    const KSetupKit& kit = planned.GetContext().kit;
    const KScript script(kit.GetScript());
    KMacroContext macros(installedVersion);
    macros.SetProductPath(planned.GetProductPath());
    KPlannedTree tree(KPlannedTree::Below::Kit, kit.GetDirectory());
    const KPlan plan(script, KINS::Names::removeSection, macros.GetExpander(), tree);
    const std::string values = KeptValuesText(kit.GetValues(), planned.GetValues());
    std::map<std::string, std::string> further;
    if (!values.empty()) {
        further.emplace(keptValuesFile, values);
    }
    KKeptKit::Write(
        planned.GetProduct().GetService(),
        kit.GetDirectory(),
        FindKeptFiles(plan, kit.GetDirectory()).files,
        sealed,
        further
    );
}

} // namespace KSETUP
