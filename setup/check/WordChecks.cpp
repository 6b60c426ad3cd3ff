// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/script/ScriptText.h>

namespace KSETUP::Checks {

using KINS::KRuleOperation;
using KINS::KRuleType;

Findings BlanksAfterCommas(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (rule.type == KRuleType::Section || rule.line.type == "command" ||
            rule.line.type.starts_with("defaultPath")) {
            continue; // no fields
        }
        const std::vector<std::string> fields = WrittenFields(rule.line.value);
        for (std::size_t index = 1; index < fields.size(); ++index) {
            if (fields[index].starts_with(' ') || fields[index].starts_with('\t')) {
                found.push_back(context.AtWritten(
                    rule.line,
                    index,
                    0,
                    fields[index],
                    Text("the blank after the comma is a part of the field"),
                    Text("take it out")
                ));
            }
        }
    }
    return found;
}

Findings CopiesToRoot(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (rule.fields.size() == 3 && (rule.Is(KRuleType::File, KRuleOperation::Copy) ||
                                        rule.Is(KRuleType::File, KRuleOperation::Symlink))) {
            found.push_back(context.AtValue(
                rule.line,
                Text("a %s with three fields has \"/\" for its target", rule.fields[0]),
                Text("add the directory it goes to, which is \"/\" if that is meant")
            ));
        }
    }
    return found;
}

Findings SectionsInBrackets(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (rule.type != KRuleType::Profile || rule.fields.size() < 4) {
            continue;
        }
        const std::string_view name = Trimmed(rule.fields[2]);
        if (name.size() > 2 && name.starts_with('[') && name.ends_with(']')) {
            const std::string bare(name.substr(1, name.size() - 2));
            found.push_back(context.AtField(
                rule.line,
                2,
                Text("the section of this option is called \"%s\", brackets and all", name),
                Text("write \"%s\"", bare)
            ));
        }
    }
    return found;
}

} // namespace KSETUP::Checks
