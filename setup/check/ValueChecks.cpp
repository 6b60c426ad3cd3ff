// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/kit/DeclaredValues.h>

#include <algorithm>
#include <set>

namespace KSETUP::Checks {

namespace {

KFinding AtUse(const KCheckContext& context, const KValueUse& use, KText message, KText advice) {
    return context.AtWritten(
        use.line,
        use.field,
        use.offset,
        "$" + use.value->name + "$",
        std::move(message),
        std::move(advice)
    );
}

/// The lines of the script that a removal loads.
std::set<unsigned> RemovingLines(const KCheckContext& context) {
    std::set<unsigned> lines;
    for (const KPlannedRule& rule : context.GetRemove().GetRules()) {
        lines.insert(rule.rule.line.number);
    }
    return lines;
}

bool CannotHold(const KValueUse& use) {
    const auto& standard = use.value->standard;
    return standard && !use.isOption && standard->find_first_of(",$") != std::string::npos;
}

} // namespace

Findings WrongValueUses(const KCheckContext& context) {
    Findings found;
    const std::set<unsigned> removing = RemovingLines(context);
    for (const KValueUse& use : FindValueUses(context.GetScript(), context.GetValues())) {
        const std::string macro = "$" + use.value->name + "$";
        if (KText why = WhyNotUse(use); !why.empty()) {
            found.push_back(AtUse(
                context,
                use,
                std::move(why),
                use.value->isSecret
                    ? Text(
                          "write it into the configuration, by profile=put,FILE,SECTION,KEY,%s",
                          macro
                      )
                    : Text("write a path without it; whoever installs may give another")
            ));
        } else if (use.value->isSecret && removing.contains(use.line.number)) {
            found.push_back(AtUse(
                context,
                use,
                Text("a removal does not know %s: secrets are not kept", macro),
                Text("take the line out")
            ));
        } else if (CannotHold(use)) {
            found.push_back(AtUse(
                context,
                use,
                Text(
                    "the default of %s has a comma or a dollar sign, which this rule cannot hold",
                    macro
                ),
                Text("write another default, or use it as the value of profile=put only")
            ));
        }
    }
    return found;
}

Findings UnusedValues(const KCheckContext& context) {
    Findings found;
    const std::vector<KValueUse> uses = FindValueUses(context.GetScript(), context.GetValues());
    for (const KDeclaredValue& value : context.GetValues()) {
        const bool isUsed = std::any_of(uses.begin(), uses.end(), [&](const KValueUse& use) {
            return use.value == &value;
        });
        if (!isUsed) {
            KFinding finding;
            finding.file = "product.ini";
            finding.line = value.line;
            finding.text = value.name;
            finding.message = Text(
                "whoever installs is asked for \"%s\", and no line of the script uses it",
                value.name
            );
            finding.advice = Text("use $%s$, or take the value out", value.name);
            found.push_back(std::move(finding));
        }
    }
    return found;
}

} // namespace KSETUP::Checks
