// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/UnitFiles.h>
#include <setup/run/PlannedPaths.h>
#include <setup/script/KSetupRuleLine.h>
#include <setup/state/KManifest.h>

#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>
#include <unordered_set>
#include <utility>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

/// The pattern, with its directory, that a rule copies; empty for any other rule.
std::string CopiedPattern(const KScriptRule& rule) {
    if (rule.own != nullptr) {
        const KSetupOperation operation = rule.own->GetOperation();
        const bool copies = operation == KSetupOperation::CopyConfig ||
                            operation == KSetupOperation::ReplaceFile ||
                            operation == KSetupOperation::CopyEntry;
        return copies && rule.own->IsPattern() ? rule.own->GetSource() : "";
    }
    return rule.Is(KINS::KRuleType::File, KINS::KRuleOperation::Copy) && IsPattern(rule.fields[1])
               ? JoinPath(rule.fields[2], rule.fields[1])
               : "";
}

/// Whether a file may be another one behind an action. None can be where a directory is made.
bool WritesOrTakes(const KPlannedAction& action) {
    return action.IsOfEntry() && action.kind != Kind::SetMode &&
           action.kind != Kind::CreateDirectory;
}

/// Whether a link stands on the way to a target, on the disk or among those that rules lay.
bool AreReachedByLinks(
    const std::vector<KCopy>& copies, const std::unordered_set<std::string>& links
) {
    std::unordered_set<std::string> looked;
    std::string_view last; // of one rule all are in one directory
    for (const KCopy& copy : copies) {
        const std::string_view directory = DirectoryOfPath(copy.target);
        if (std::exchange(last, directory) == directory) {
            continue;
        }
        for (std::string at(directory); at.size() > 1 && looked.insert(at).second;
             at = ParentPath(at)) {
            std::error_code unknown; // as good as missing
            const auto status = std::filesystem::symlink_status(at, unknown);
            if (links.contains(at) || std::filesystem::is_symlink(status)) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

std::vector<std::string> ExpectedPaths(const KPlan& plan) {
    std::vector<std::string> paths;
    std::vector<std::string> units; // of which the plan does not know whether they are there
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            if (action.kind == Kind::InstallService) {
                for (const std::string& made : UnitPaths(*action.path)) {
                    units.push_back(ParentPath(made)); // of the links that enable it
                    units.push_back(made);
                }
            } else if (MakesEntry(action.kind) && !action.lacks && !action.replaces) {
                paths.push_back(*action.path);
            }
        }
    }
    std::erase_if(units, [](const std::string& path) { return LookAtEntry(path).has_value(); });
    paths.insert(paths.end(), units.begin(), units.end());
    return paths;
}

std::set<std::string> DirectoriesOf(const std::vector<std::string>& paths) {
    std::set<std::string> directories;
    for (const std::string& path : paths) {
        directories.insert(ParentPath(NormalPath(path)));
    }
    return directories;
}

std::vector<std::string> ChangedPaths(const KPlan& plan) {
    std::vector<std::string> paths;
    plan.ForEachAction([&](const KPlannedAction& action) {
        if (action.IsOfEntry()) {
            paths.push_back(*action.path);
        } else if (action.kind == Kind::InstallService || action.kind == Kind::RemoveService) {
            const std::vector<std::string> units = UnitPaths(*action.path);
            paths.insert(paths.end(), units.begin(), units.end());
        }
    });
    return paths;
}

std::deque<KRunChanges::Matches> PlannedMatches(const KPlan& plan) {
    std::deque<KRunChanges::Matches> all;
    bool isBehindCommand = false;
    for (const KPlannedRule& planned : plan.GetRules()) {
        const std::string pattern = CopiedPattern(planned.rule);
        if (!pattern.empty()) {
            all.push_back({NormalPath(pattern), {}, isBehindCommand});
        }
        for (const KPlannedAction& action : planned.actions) {
            isBehindCommand = isBehindCommand || action.kind == Kind::StartCommand ||
                              action.kind == Kind::RunCommand;
            const std::string_view name = NameOfPath(*action.path);
            // What is offered beside an edited file has another name.
            const bool isMatch =
                action.kind == Kind::KeepFile ||
                (action.kind == Kind::CopyFile && name == NameOfPath(*action.source));
            if (!pattern.empty() && isMatch && !action.lacks) {
                all.back().names.push_back(name);
            }
        }
    }
    return all;
}

std::vector<const std::string*> CopiedFiles(const KPlan& plan) {
    std::vector<const std::string*> files;
    plan.ForEachAction([&](const KPlannedAction& action) {
        if (action.kind == Kind::CopyFile && !action.lacks) {
            files.push_back(action.source);
        }
    });
    return files;
}

std::vector<KCopy> LastingCopies(const KPlan& plan, const std::string& kitDirectory) {
    const std::string kit = NormalPath(kitDirectory);
    const auto normal = [&](const std::string& path) -> const std::string& {
        return IsNormalPath(path) ? path : plan.Keep(NormalPath(path));
    };
    std::vector<KCopy> copies;
    std::unordered_set<std::string_view> written; // by anything but a copy from the kit
    std::unordered_set<std::string> links;
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            if (action.kind == Kind::StartCommand || action.kind == Kind::RunCommand) {
                return {};
            }
            if (action.kind == Kind::MakeLink) {
                links.insert(NormalPath(*action.path));
            }
            const std::string& target = normal(*action.path);
            const std::string& source = normal(*action.source);
            if (action.kind == Kind::CopyFile && !action.lacks && IsAtOrBelow(source, kit) &&
                !IsAtOrBelow(target, kit)) {
                copies.push_back({source, target});
            } else if (WritesOrTakes(action)) {
                written.insert(target);
            }
        }
    }
    if (AreReachedByLinks(copies, links)) {
        return {}; // a target of two paths holds what was copied last
    }
    std::erase_if(copies, [&](const KCopy& copy) {
        return written.contains(copy.target) || written.contains(copy.source);
    });
    return copies;
}

} // namespace KSETUP
