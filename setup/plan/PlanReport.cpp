// SPDX-License-Identifier: MIT
#include <setup/output/TextFormat.h>
#include <setup/plan/PlanReport.h>
#include <setup/script/SecretNames.h>

#include <filesystem>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

std::string DescribeMode(const KPlannedAction& action) {
    return "set mode " + ModeText(action.mode) +
           (action.source.empty() ? "" : " and owner " + Printable(action.source)) + " of " +
           Printable(action.path);
}

std::string ActionText(const KPlannedAction& action) {
    const std::string path = Printable(action.path);
    const std::string source = Printable(action.source);
    switch (action.kind) {
    case Kind::CopyFile:
        return (action.replacesLink ? "overwrite link "
                : action.replaces   ? "overwrite file "
                                    : "create file ") +
               path + " (" + BytesInWords(action.bytes) + ") from " + source;
    case Kind::KeepFile:
        return "keep file " + path + " (" + source + ")";
    case Kind::MakeLink:
        return (action.replaces ? "overwrite link " : "create link ") + path + " to " + source;
    case Kind::CreateProfile:
        return (action.replaces ? "empty profile " : "create profile ") + path;
    case Kind::PutOption:
        return (action.replaces ? "put into " : "create and put into ") + path + ": " + source;
    case Kind::RemoveOption:
        return "remove from " + path + ": " + source;
    case Kind::SetMode:
        return DescribeMode(action);
    case Kind::CreateUser:
        return "create user " + source + " by " + path;
    case Kind::InstallService:
        return "install service " + path + (source.empty() ? "" : ", which runs " + source);
    case Kind::DeleteFile:
    case Kind::DeleteDirectory: {
        const char* reason = action.kind == Kind::DeleteDirectory
                                 ? " (stays: not empty, or not there)"
                                 : " (not there)";
        return ActionWord(action.kind) + (" " + path) +
               (action.lacks && action.obstacle.empty() ? reason : "");
    }
    default:
        return ActionWord(action.kind) + (" " + path);
    }
}

void AppendAction(std::string& text, const KPlannedAction& action) {
    text += "    " + ActionText(action) + "\n";
    if (!action.obstacle.empty()) {
        text += "    the run would end here: " + Printable(action.obstacle) + "\n";
    }
    if (!action.conflict.empty()) {
        text += "    the run would be refused: " + Printable(action.conflict) + "\n";
    }
}

void AppendRule(std::string& text, const std::string& script, const KPlannedRule& planned) {
    const KScriptLine& line = planned.rule.line;
    text += script + ":" + std::to_string(line.number) + ": " +
            Printable(MaskedLine(line.type, line.value)) + "\n";
    if (planned.actions.empty()) {
        text += "    nothing\n";
    }
    for (const KPlannedAction& action : planned.actions) {
        AppendAction(text, action);
    }
}

void AppendTotals(std::string& text, const KPlanTotals& totals) {
    text += "Files and links: " + std::to_string(totals.created) + " created, " +
            std::to_string(totals.overwritten) + " overwritten, " + std::to_string(totals.deleted) +
            " deleted" + (totals.kept != 0 ? ", " + std::to_string(totals.kept) + " kept" : "") +
            ". Directories: " + std::to_string(totals.directoriesCreated) + " created, " +
            std::to_string(totals.directoriesDeleted) + " deleted. " +
            Counted(totals.services, "service action", "service actions") + ", " +
            Counted(totals.commands, "command", "commands") + ".\n";
}

void AppendSpace(std::string& text, const KPlan::Space& space) {
    text += "File system of " + Printable(space.directory) + ": " + BytesInWords(space.needed) +
            " needed and " + BytesInWords(KPlan::Space::spareBytes) + " to spare, " +
            BytesInWords(space.available) + " free; " +
            Counted(space.filesNeeded, "file", "files") + " needed and " +
            std::to_string(KPlan::Space::spareFiles) + " to spare, " +
            (space.filesAreUnlimited ? "unlimited" : std::to_string(space.filesAvailable)) +
            " free" + (space.HasRoom() ? ".\n" : ". That is not enough.\n");
}

void Count(const KPlannedAction& action, KPlanTotals& totals) {
    switch (action.kind) {
    case Kind::CopyFile:
    case Kind::MakeLink:
    case Kind::CreateProfile:
        ++(action.replaces ? totals.overwritten : totals.created);
        break;
    case Kind::KeepFile:
        ++totals.kept;
        break;
    case Kind::PutOption:
    case Kind::CreateUser:
        totals.created += action.replaces ? 0 : 1;
        break;
    case Kind::RemoveOption:
    case Kind::SetMode:
        break;
    case Kind::DeleteFile:
        totals.deleted += action.lacks ? 0 : 1;
        break;
    case Kind::CreateDirectory:
        ++totals.directoriesCreated;
        break;
    case Kind::DeleteDirectory:
        totals.directoriesDeleted += action.lacks ? 0 : 1;
        break;
    case Kind::StartCommand:
    case Kind::RunCommand:
    case Kind::StopProgram:
        ++totals.commands;
        break;
    case Kind::InstallService:
    case Kind::RemoveService:
    case Kind::StartService:
    case Kind::StopService:
        ++totals.services;
        break;
    }
}

} // namespace

KPlanTotals CountTotals(const KPlan& plan) {
    KPlanTotals totals;
    plan.ForEachAction([&](const KPlannedAction& action) {
        if (!action.obstacle.empty()) {
            ++totals.obstacles;
        } else {
            Count(action, totals);
        }
    });
    return totals;
}

std::string ToText(const KPlanReport& report) {
    const KPlanTotals totals = CountTotals(*report.plan);
    std::string text = (report.installs ? "Installing " : "Removing ") + Printable(report.product) +
                       " " + Printable(report.version) + " (build " +
                       std::to_string(report.buildNumber) + ")" +
                       (report.installs ? " in " : " from ") + Printable(report.path) +
                       " would do this. Nothing is done now.\n\n";
    const std::string script = Printable(std::filesystem::path(report.script).filename().string());
    for (const KPlannedRule& planned : report.plan->GetRules()) {
        if (planned.rule.type != KINS::KRuleType::Section) {
            AppendRule(text, script, planned);
        }
    }
    if (!report.plan->GetCleanup().empty()) {
        text += report.installs ? "what this version does not have any more:\n"
                                : "what no rule deletes:\n";
    }
    for (const KPlannedAction& action : report.plan->GetCleanup()) {
        AppendAction(text, action);
    }
    text += "\n";
    AppendTotals(text, totals);
    for (const KPlan::Space& space : report.space) {
        AppendSpace(text, space);
    }
    for (const std::string& note : report.notes) {
        text += Printable(note) + "\n";
    }
    if (!report.refusal.empty()) {
        text += "The run would be refused: " + Printable(report.refusal) + ".\n";
    }
    if (!report.recordObstacle.empty()) {
        text += "The run would end when it writes the record: " + Printable(report.recordObstacle) +
                ".\n";
    }
    if (totals.obstacles != 0) {
        text += "The run would end at the first of " +
                Counted(totals.obstacles, "place", "places") +
                " that cannot be done; look for \"would end here\".\n";
    }
    return text;
}

} // namespace KSETUP
