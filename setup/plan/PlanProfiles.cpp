// SPDX-License-Identifier: MIT
#include <setup/plan/KPlanner.h>
#include <setup/script/ScriptText.h>
#include <setup/script/SecretNames.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;
using Fields = std::vector<std::string>;
using KINS::KRuleOperation;

/// What the engine's profiles refuse to write, because it would not read back.
KText WhyNotAnOption(const KPlannedTree::Option& option) {
    const std::string_view key = Trimmed(option.key);
    const auto isControl = [](char byte) {
        return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
    };
    const std::string all = option.section + option.key + option.value;
    if (std::any_of(all.begin(), all.end(), isControl)) {
        return Text("a profile holds no control characters, as tabs");
    }
    const bool looksOtherwise = key.starts_with("\xEF\xBB\xBF") || key.starts_with('[') ||
                                key.starts_with(';') || key.starts_with('#') ||
                                key.find('=') != std::string_view::npos;
    return looksOtherwise ? Text("a profile holds no key such as %s", option.key) : "";
}

} // namespace

void KPlanner::PlanProfile(KRuleOperation operation, const Fields& fields) {
    const std::size_t count = fields.size();
    const std::string& path = fields[1];
    if (operation == KRuleOperation::Create) {
        Create(path);
    } else if (operation == KRuleOperation::Put) {
        Put(path,
            count == 5 ? KPlannedTree::Option{fields[2], fields[3], fields[4]}
                       : KPlannedTree::Option{});
    } else if (operation == KRuleOperation::RemoveFile) {
        RemoveListed(path, count == 4 ? fields[2] : "", count == 4 ? fields[3] : "");
    }
}

void KPlanner::Create(const std::string& profile) {
    KPlannedAction action = ActionOf(tree, Kind::CreateProfile, profile);
    action.replaces = tree.Exists(profile);
    const KPlannedPlace place =
        tree.Resolve(profile, KPlannedTree::Last::Follow, KPlannedTree::Links::Trusted);
    const KPlannedEntry standing = tree.Find(place.GetPath());
    const KEntryKind former = standing.kind;
    NoteChange(profile, standing);
    action.obstacle = former == KEntryKind::Directory ? Text("%s is a directory", profile)
                      : former == KEntryKind::Other   ? Text("%s is no regular file", profile)
                                                      : KSETUP::WhyNoPlace(place, profile);
    if (action.replaces && !WasMadeByPlan(profile)) {
        action.conflict = policy.WhyNotReplace(profile);
    }
    action.lacksDirectory = place.problem == KPathProblem::Missing;
    KPlannedEntry entry;
    entry.kind = KEntryKind::File;
    entry.mode = former == KEntryKind::File ? standing.mode : 0644;
    tree.Put(place.GetPath(), entry);
    actions.push_back(std::move(action));
}

void KPlanner::Put(const std::string& profile, const KPlannedTree::Option& option) {
    KPlannedAction action = ActionOf(
        tree,
        Kind::PutOption,
        profile,
        "[" + option.section + "] " + option.key + "=" +
            (MayBeSecret(option.section, option.key) ? maskedValue : option.value)
    );
    const KPlannedPlace place =
        tree.Resolve(profile, KPlannedTree::Last::Follow, KPlannedTree::Links::Trusted);
    const KPlannedEntry standing = tree.Find(place.GetPath());
    const KEntryKind former = standing.kind;
    NoteChange(profile, standing);
    action.replaces = former != KEntryKind::Nothing;
    action.obstacle = former == KEntryKind::Directory ? Text("%s is a directory", profile)
                      : former == KEntryKind::Other   ? Text("%s is no regular file", profile)
                                                      : KSETUP::WhyNoPlace(place, profile);
    if (action.obstacle.empty()) {
        action.obstacle = WhyNotAnOption(option);
    }
    action.lacksDirectory = place.problem == KPathProblem::Missing;
    if (!action.replaces) {
        KPlannedEntry entry;
        entry.kind = KEntryKind::File;
        entry.mode = 0644;
        tree.Put(place.GetPath(), entry);
    }
    tree.PutOption(place.GetPath(), option);
    actions.push_back(std::move(action));
}

void KPlanner::RemoveListed(
    const std::string& profile, const std::string& section, const std::string& text
) {
    const KPlannedPlace place =
        tree.Resolve(profile, KPlannedTree::Last::Follow, KPlannedTree::Links::Any);
    const KEntryKind kind = tree.Find(place.GetPath()).kind;
    const KText why = kind == KEntryKind::Directory ? Text("%s is a directory", profile)
                      : kind == KEntryKind::Other   ? Text("%s is no regular file", profile)
                      : place.problem != KPathProblem::Missing ? KSETUP::WhyNoPlace(place, profile)
                                                               : "";
    if (!why.empty()) {
        actions.push_back(ActionOf(tree, Kind::RemoveOption, profile, "[" + section + "]"));
        actions.back().obstacle = why;
        return;
    }
    const std::vector<KPlannedTree::Option> all = tree.ReadOptions(profile, section);
    for (const KPlannedTree::Option& option : all) {
        if (option.value.find(text) != std::string::npos) {
            if (KText kept = policy.WhyNotDeleteListed(option.value); !kept.empty()) {
                actions.push_back(KeepOf(tree, option.value, kept));
                continue;
            }
            DeleteIfPossible(option.value, KChangePolicy::Named::ByScript);
            KPlannedAction action = ActionOf(
                tree,
                Kind::RemoveOption,
                profile,
                "[" + section + "] " + option.key + "=" + option.value
            );
            action.obstacle = WhyNoPlace(profile, KPlannedTree::Last::Follow);
            actions.push_back(std::move(action));
            NoteChange(profile, tree.Find(place.GetPath()));
            tree.RemoveOption(profile, option);
        }
    }
}

} // namespace KSETUP
