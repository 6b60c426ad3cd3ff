// SPDX-License-Identifier: MIT
#include <setup/output/TextFormat.h>
#include <setup/plan/LoadProblems.h>

namespace KSETUP {

KText DescribeLoadProblems(const std::string& scriptPath, const KPlan& plan) {
    const auto place = [&](const KScriptLine& line) {
        return Printable(scriptPath) + ":" + std::to_string(line.number) + ": ";
    };
    if (!plan.GetCycles().empty()) {
        const KScriptCycle& cycle = plan.GetCycles().front();
        return Text(
            "%sa section includes itself, and a run would load it without end: %s. Take one of "
            "these \"section\" lines out.",
            place(cycle.line),
            Printable(ToWords(cycle))
        );
    }
    KText all;
    for (const KPlannedRule& planned : plan.GetRules()) {
        if (const KText& why = planned.rule.problem; !why.empty()) {
            all += (all.empty() ? "" : "\n") + place(planned.rule.line) + Printable(why);
        }
    }
    return all;
}

} // namespace KSETUP
