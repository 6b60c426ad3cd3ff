// SPDX-License-Identifier: MIT
#include <setup/check/PlanSteps.h>
#include <setup/files/PathText.h>
#include <setup/plan/KPlannedTree.h>
#include <setup/script/KSetupRuleLine.h>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

} // namespace

bool MakesFile(const KPlannedAction& action) noexcept {
    return !action.lacks && (action.kind == Kind::CopyFile || action.kind == Kind::MakeLink ||
                             action.kind == Kind::CreateProfile || action.kind == Kind::PutOption ||
                             action.kind == Kind::CreateUser);
}

std::optional<KCopyLine> CopyLineOf(const KScriptRule& rule) {
    const std::vector<std::string>& fields = rule.fields;
    if (rule.Is(KINS::KRuleType::File, KINS::KRuleOperation::Copy)) {
        const bool isPattern = IsPattern(fields[1]);
        return KCopyLine{
            fields[1],
            fields[2],
            fields.size() > 3 ? fields[3] : "",
            fields.size() == 5 && !isPattern ? fields[4] : fields[1],
            isPattern,
            1};
    }
    switch (SetupOperationOf(rule)) {
    case KSetupOperation::CopyConfig:
    case KSetupOperation::ReplaceFile: {
        const std::string target = rule.own->GetTarget();
        return KCopyLine{
            fields[1],
            fields[2],
            fields[3],
            std::string(NameOfPath(target)),
            rule.own->IsPattern(),
            1};
    }
    case KSetupOperation::CopyEntry:
        return KCopyLine{
            std::string(NameOfPath(fields[1])),
            ParentPath(fields[1]),
            ParentPath(fields[2]),
            std::string(NameOfPath(fields[2])),
            false,
            1};
    default:
        return std::nullopt;
    }
}

std::string InKit(const std::string& path, const KCheckContext& context) {
    const std::string normal = NormalPath(path);
    const std::string& kit = context.GetKitDirectory();
    return normal != kit && IsAtOrBelow(normal, kit) ? normal.substr(kit.size() + 1) : normal;
}

} // namespace KSETUP
