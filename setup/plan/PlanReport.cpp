// SPDX-License-Identifier: MIT
#include <setup/output/TextFormat.h>
#include <setup/plan/PlanReport.h>
#include <setup/script/SecretNames.h>

#include <filesystem>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

using Form = const char*;

/// What is said of an action on `path`, where nothing else belongs to it.
Form FormOf(const KPlannedAction& action) {
    switch (action.kind) {
    case Kind::CreateDirectory:
        return TextFormat("create directory %s");
    case Kind::DeleteDirectory:
        return TextFormat("delete directory %s");
    case Kind::DeleteFile:
        return TextFormat("delete file %s");
    case Kind::CreateProfile:
        return action.replaces ? TextFormat("empty profile %s") : TextFormat("create profile %s");
    case Kind::StartCommand:
        return TextFormat("start command %s");
    case Kind::RunCommand:
        return TextFormat("run command %s");
    case Kind::StopProgram:
        return TextFormat("stop program %s");
    case Kind::InstallService:
        return TextFormat("install service %s");
    case Kind::RemoveService:
        return TextFormat("remove service %s");
    case Kind::StartService:
        return TextFormat("start service %s");
    case Kind::StopService:
        return TextFormat("stop service %s");
    default:
        return "%s";
    }
}

KText DescribeMode(const KPlannedAction& action) {
    const std::string path = Printable(*action.path);
    return action.source->empty() ? Text("set mode %s of %s", ModeText(action.mode), path)
                                  : Text(
                                        "set mode %s and owner %s of %s",
                                        ModeText(action.mode),
                                        Printable(*action.source),
                                        path
                                    );
}

KText DescribeCopy(const KPlannedAction& action) {
    return Text(
        action.replacesLink ? TextFormat("overwrite link %s (%s) from %s")
        : action.replaces   ? TextFormat("overwrite file %s (%s) from %s")
                            : TextFormat("create file %s (%s) from %s"),
        Printable(*action.path),
        BytesInWords(action.bytes),
        Printable(*action.source)
    );
}

KText ActionText(const KPlannedAction& action) {
    const std::string path = Printable(*action.path);
    const KText source = Printable(*action.source);
    switch (action.kind) {
    case Kind::CopyFile:
        return DescribeCopy(action);
    case Kind::KeepFile:
        return Text("keep file %s (%s)", path, Printable(action.whyKept));
    case Kind::MakeLink:
        return Text(
            action.replaces ? TextFormat("overwrite link %s to %s")
                            : TextFormat("create link %s to %s"),
            path,
            source
        );
    case Kind::PutOption:
        return Text(
            action.replaces ? TextFormat("put into %s: %s")
                            : TextFormat("create and put into %s: %s"),
            path,
            source
        );
    case Kind::RemoveOption:
        return Text("remove from %s: %s", path, source);
    case Kind::SetMode:
        return DescribeMode(action);
    case Kind::CreateUser:
        return Text("create user %s by %s", source, path);
    case Kind::InstallService:
        return source.empty() ? Text(FormOf(action), path)
                              : Text("install service %s, which runs %s", path, source);
    default: {
        const KText text = Text(FormOf(action), path);
        if (!action.lacks || !action.obstacle.empty()) {
            return text;
        }
        return action.kind == Kind::DeleteDirectory
                   ? text + " " + Text("(stays: not empty, or not there)")
               : action.kind == Kind::DeleteFile ? text + " " + Text("(not there)")
                                                 : text;
    }
    }
}

/// Below a rule.
KText Line(const KText& text) {
    return "    " + text + "\n";
}

void AppendAction(KText& text, const KPlannedAction& action) {
    text += Line(ActionText(action));
    if (!action.obstacle.empty()) {
        text += Line(Text("the run would end here: %s", Printable(action.obstacle)));
    }
    if (!action.conflict.empty()) {
        text += Line(Text("the run would be refused: %s", Printable(action.conflict)));
    }
}

void AppendRule(KText& text, const std::string& script, const KPlannedRule& planned) {
    const KScriptLine& line = planned.rule.line;
    text += script + ":" + std::to_string(line.number) + ": " +
            Printable(MaskedLine(line.type, line.value)) + "\n";
    if (planned.actions.empty()) {
        text += Line(Text("nothing"));
    }
    for (const KPlannedAction& action : planned.actions) {
        AppendAction(text, action);
    }
}

void AppendTotals(KText& text, const KPlanTotals& totals) {
    text += Text(
        "Files and links: %s created, %s overwritten, %s deleted",
        totals.created,
        totals.overwritten,
        totals.deleted
    );
    text += totals.kept != 0 ? Text(", %s kept", totals.kept) : "";
    text += ". " + Text(
                       "Directories: %s created, %s deleted. %s, %s.",
                       totals.directoriesCreated,
                       totals.directoriesDeleted,
                       Counted(totals.services, "%s service action", "%s service actions"),
                       Counted(totals.commands, "%s command", "%s commands")
                   );
    text += "\n";
}

void AppendSpace(KText& text, const KPlan::Space& space) {
    text += Text(
        "File system of %s: %s needed and %s to spare, %s free; %s needed and %s to spare, %s "
        "free.",
        Printable(space.directory),
        BytesInWords(space.needed),
        BytesInWords(KPlan::Space::spareBytes),
        BytesInWords(space.available),
        Counted(space.filesNeeded, "%s file", "%s files"),
        KPlan::Space::spareFiles,
        space.filesAreUnlimited ? Text("unlimited") : KText(space.filesAvailable)
    );
    text += (space.HasRoom() ? "" : " " + Text("That is not enough.")) + "\n";
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

KText ToText(const KPlanReport& report) {
    const KPlanTotals totals = CountTotals(*report.plan);
    KText text = Text(
        report.installs ? TextFormat("Installing %s %s (build %s) in %s would do this. Nothing is "
                                     "done now.")
                        : TextFormat("Removing %s %s (build %s) from %s would do this. Nothing is "
                                     "done now."),
        Printable(report.product),
        Printable(report.version),
        report.buildNumber,
        Printable(report.path)
    );
    text += "\n\n";
    const std::string script = Printable(std::filesystem::path(report.script).filename().string());
    for (const KPlannedRule& planned : report.plan->GetRules()) {
        if (planned.rule.type != KINS::KRuleType::Section) {
            AppendRule(text, script, planned);
        }
    }
    if (!report.plan->GetCleanup().empty()) {
        text += report.installs ? Text("what this version does not have any more:")
                                : Text("what no rule deletes:");
        text += "\n";
    }
    for (const KPlannedAction& action : report.plan->GetCleanup()) {
        AppendAction(text, action);
    }
    text += "\n";
    AppendTotals(text, totals);
    for (const KPlan::Space& space : report.space) {
        AppendSpace(text, space);
    }
    for (const KText& note : report.notes) {
        text += Printable(note) + "\n";
    }
    if (!report.refusal.empty()) {
        text += Text("The run would be refused: %s.", Printable(report.refusal)) + "\n";
    }
    if (!report.recordObstacle.empty()) {
        text += Text(
            "The run would end when it writes the record: %s.", Printable(report.recordObstacle)
        );
        text += "\n";
    }
    if (totals.obstacles != 0) {
        text += Counted(
            totals.obstacles,
            "The run would end at the first of %s place that cannot be done; look for \"would end "
            "here\".",
            "The run would end at the first of %s places that cannot be done; look for \"would end "
            "here\"."
        );
        text += "\n";
    }
    return text;
}

} // namespace KSETUP
