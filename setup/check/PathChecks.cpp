// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/check/Checks.h>
#include <setup/check/MacroText.h>
#include <setup/check/PlanSteps.h>
#include <setup/files/PathText.h>
#include <setup/files/TrustedPath.h>
#include <setup/plan/SharedPlace.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <array>
#include <cctype>

namespace KSETUP::Checks {

namespace {

using KINS::KRuleOperation;
using KINS::KRuleType;
using Kind = KPlannedAction::Kind;

bool IsFile(const KScriptRule& rule, KRuleOperation operation) {
    return rule.Is(KRuleType::File, operation);
}

/// The fields of a rule that are paths of what it reads or changes. Where a link leads to may be
/// relative on purpose.
std::vector<std::size_t> PathFields(const KScriptRule& rule) {
    if (rule.type == KRuleType::Directory && rule.fields.size() == 2) {
        return {1};
    }
    if (rule.type == KRuleType::Profile && rule.fields.size() >= 2) {
        return {1};
    }
    std::vector<std::size_t> fields;
    if (IsFile(rule, KRuleOperation::Copy) || IsFile(rule, KRuleOperation::Delete)) {
        fields.push_back(2);
    }
    if ((IsFile(rule, KRuleOperation::Copy) || IsFile(rule, KRuleOperation::Symlink)) &&
        rule.fields.size() > 3) {
        fields.push_back(3);
    }
    return fields;
}

/// The field of a rule that names what it changes; 0 for a rule that changes no files.
std::size_t ChangedField(const KScriptRule& rule) {
    const std::vector<std::size_t> fields = PathFields(rule);
    if (fields.empty() || (IsFile(rule, KRuleOperation::Copy) && rule.fields.size() == 3)) {
        return 0;
    }
    return fields.back();
}

/// What is written where a macro that is a directory should end with a separator.
bool IsPartOfAName(char byte) {
    return std::isalnum(static_cast<unsigned char>(byte)) != 0 ||
           std::string_view("_-.*?$").find(byte) != std::string_view::npos;
}

} // namespace

Findings RelativePaths(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        for (const std::size_t index : PathFields(rule)) {
            const std::string path(Trimmed(rule.fields[index]));
            // A macro that there is not is told by itself.
            if (path.empty() || path.front() == '/' || path.front() == '$') {
                continue;
            }
            found.push_back(context.AtField(
                rule.line,
                index,
                Text("\"%s\" is relative, so it is \"/%s\" for the run", path, path),
                Text("begin it with \"/\" or with a directory's macro, as $pathTarget$ or "
                     "$pathSource$")
            ));
        }
    }
    return found;
}

Findings NewNames(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const bool isCopy = IsFile(rule, KRuleOperation::Copy);
        if ((!isCopy && !IsFile(rule, KRuleOperation::Symlink)) || rule.fields.size() != 5) {
            continue;
        }
        if (isCopy && IsPattern(rule.fields[1])) {
            found.push_back(context.AtField(
                rule.line,
                4,
                Text("files that a wildcard copies keep their names, so this field does not count"),
                Text("take it out, or copy the one file by its name")
            ));
        } else if (rule.fields[4].find('/') != std::string::npos) {
            found.push_back(context.AtField(
                rule.line,
                4,
                Text(
                    "the last field is a name, and this one leads to \"%s\"",
                    NormalPath(JoinPath(rule.fields[3], rule.fields[4]))
                ),
                Text("put the directory into the field before, and the name alone here")
            ));
        }
    }
    return found;
}

Findings WildcardLinks(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (IsFile(rule, KRuleOperation::Symlink) && IsPattern(rule.fields[1])) {
            found.push_back(context.AtField(
                rule.line,
                1,
                Text(
                    "a \"symlink\" knows no wildcards: this makes one link to a file of the name "
                    "\"%s\"",
                    rule.fields[1]
                ),
                Text("write a line for each link")
            ));
        }
    }
    return found;
}

Findings LinksOntoFiles(const KCheckContext& context) {
    std::unordered_map<std::string_view, unsigned> files; // that are there by then, and their lines
    Findings found;
    for (const KPlanStep& step : context.GetInstallSteps()) {
        if (step.action->kind == Kind::DeleteFile) {
            files.erase(step.path);
        } else if (step.action->kind != Kind::MakeLink) {
            if (MakesFile(*step.action)) {
                files.try_emplace(step.path, step.rule->rule.line.number);
            }
            continue;
        }
        const auto file = files.find(step.path);
        if (step.action->kind != Kind::MakeLink || file == files.end() || step.commandRan) {
            continue;
        }
        found.push_back(context.AtValue(
            step.rule->rule.line,
            Text(
                "the link \"%s\" would replace the file of line %s, and a link replaces only links",
                step.path,
                file->second
            ),
            Text("write first the file that is there, then where the link goes: "
                 "file=symlink,NAME,FROM,TO,NEWNAME makes TO/NEWNAME, which leads to FROM/NAME")
        ));
    }
    return found;
}

Findings MissingSeparators(const KCheckContext& context) {
    static constexpr std::array bare = std::to_array<std::string_view>({
        "pathTargetLin",
        "pathTargetMac",
    });
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::string& value = rule.line.value;
        for (const KMacroMention& mention : FindMacros(value, context.GetMacros())) {
            const std::size_t end = mention.offset + mention.name.size() + 2;
            if (!mention.isKnown || end >= value.size() || !IsPartOfAName(value[end]) ||
                std::find(bare.begin(), bare.end(), mention.name) == bare.end()) {
                continue;
            }
            const std::string macro = "$" + mention.name + "$";
            found.push_back(context.AtWritten(
                rule.line,
                0,
                mention.offset,
                macro,
                Text(
                    "%s is a directory without a separator at its end, so what stands behind it "
                    "becomes a part of its name",
                    macro
                ),
                Text("write \"%s/\"", macro)
            ));
        }
    }
    return found;
}

Findings ChangedKits(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::size_t index = ChangedField(rule);
        if (index == 0 || !rule.fields[index].starts_with('/') ||
            !IsAtOrBelow(NormalPath(rule.fields[index]), context.GetKitDirectory())) {
            continue;
        }
        const bool deletes = rule.operation == KRuleOperation::Delete;
        found.push_back(context.AtField(
            rule.line,
            index,
            Text(
                "%s, which then cannot be installed a second time as it was",
                deletes ? Text("this deletes in the kit") : Text("this changes the kit")
            ),
            Text("name a directory of the product, as $pathTarget$")
        ));
    }
    return found;
}

/// By the directories of this machine, as those of the administrator's will be alike.
Findings SharedProductPaths(const KCheckContext& context) {
    const std::string& path = context.GetProductPath();
    const KText why = WhyOthersCanExchange(path);
    if (why.empty() || context.IsProductPathGiven() || !path.starts_with('/')) {
        return {};
    }
    const KText message = Text(
        "%s, so others than root can exchange what is installed in \"%s\"%s",
        why,
        path,
        (RunsPrograms(context.GetInstall())
             ? Text(": an install is refused, as the script has commands or services")
             : "")
    );
    const KText advice = Text("propose a directory below one of root's, as in /opt");
    for (const KScriptRule& rule : context.GetLines()) {
        if (rule.line.type == KINS::Names::defaultPathKey) {
            return {context.AtValue(rule.line, message, advice)};
        }
    }
    return {context.AtSection(KINS::Names::installSection, message, advice)};
}

} // namespace KSETUP::Checks
