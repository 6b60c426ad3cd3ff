// SPDX-License-Identifier: MIT
#include <setup/files/AccountNames.h>
#include <setup/files/PathText.h>
#include <setup/plan/KPlanner.h>
#include <setup/plan/PlanOwnRules.h>
#include <setup/script/UsersFile.h>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

constexpr unsigned othersMayWrite = 022;

/// An account that the machine knows may not be known here.
KText WithAccountHint(const KText& missing) {
    return KnowsLocalAccountsOnly()
               ? Text(
                     "%s in /etc (a bundle, and a run with --root, know no others: write the "
                     "number of one that is in LDAP or another directory)",
                     missing
                 )
               : missing;
}

} // namespace

KOwnRules::KOwnRules(KPlannedTree& plannedTree, const MacroExpander& macros)
    : tree(plannedTree),
      usersFile(macros(usersFileMacro).c_str()) {}

KPlannedAction KOwnRules::Plan(const KSetupRuleLine& line) {
    switch (line.GetOperation()) {
    case KSetupOperation::SetMode:
        return SetMode(line);
    case KSetupOperation::CreateUser:
        return CreateUser(line);
    default:
        break;
    }
    return ActionOf(tree, Kind::RunCommand, line.Get(KSetupField::Command));
}

KPlannedAction KOwnRules::SetMode(const KSetupRuleLine& line) {
    KPlannedAction action = ActionOf(
        tree,
        Kind::SetMode,
        line.Get(KSetupField::Path),
        line.Get(KSetupField::Owner) +
            (line.Has(KSetupField::Group) ? ":" + line.Get(KSetupField::Group) : "")
    );
    action.mode = line.GetMode();
    const KPlannedPlace place =
        tree.Resolve(*action.path, KPlannedTree::Last::Keep, KPlannedTree::Links::Trusted);
    KPlannedEntry entry = tree.Find(place.GetPath());
    action.replaces = entry.kind != KEntryKind::Nothing;
    action.lacks = !action.replaces;
    action.obstacle = WhyNoMode(line, place);
    if (action.obstacle.empty()) {
        entry.mode = action.mode;
        if (entry.kind == KEntryKind::File) {
            entry.origin = &tree.GetContent(place.GetPath()); // its bytes stay where they are
        }
        // Else as the disk has it, of a directory that was there before.
        const bool isRoots =
            line.Has(KSetupField::Owner) && FindUser(line.Get(KSetupField::Owner)) == 0;
        const bool isOthers = line.Has(KSetupField::Owner) && !isRoots;
        entry.isShared =
            (action.mode & othersMayWrite) != 0 || isOthers || (entry.isShared && !isRoots);
        tree.Put(place.GetPath(), entry);
    }
    return action;
}

KText KOwnRules::WhyNoMode(const KSetupRuleLine& line, const KPlannedPlace& place) const {
    const std::string& path = line.Get(KSetupField::Path);
    switch (tree.Find(place.GetPath()).kind) {
    case KEntryKind::Nothing:
        return Text("%s is missing", path);
    case KEntryKind::Link:
        return Text("%s is a link, which has no mode", path);
    case KEntryKind::Other:
        return Text("%s is neither a file nor a directory", path);
    case KEntryKind::File:
    case KEntryKind::Directory:
        break;
    }
    return place.problem == KPathProblem::None
               ? WhyNoOwner(line)
               : Text("a symbolic link on the way is not followed: %s", path);
}

KText KOwnRules::WhyNoOwner(const KSetupRuleLine& line) const {
    const std::string& user = line.Get(KSetupField::Owner);
    const std::string& group = line.Get(KSetupField::Group);
    if (!user.empty() && !users.contains(user) && !FindUser(user)) {
        return WithAccountHint(Text("there is no user %s", user));
    }
    if (!group.empty() && !users.contains(group) && !FindGroup(group)) {
        return WithAccountHint(Text("there is no group %s", group));
    }
    return "";
}

KPlannedAction KOwnRules::CreateUser(const KSetupRuleLine& line) {
    KPlannedAction action =
        ActionOf(tree, Kind::CreateUser, usersFile, line.Get(KSetupField::UserName));
    users.insert(*action.source);
    const KPlannedEntry former = tree.Find(usersFile);
    action.replaces = former.kind != KEntryKind::Nothing;
    if (action.replaces && former.kind != KEntryKind::File) {
        action.obstacle = Text("%s is no regular file", usersFile);
        return action;
    }
    KPlannedEntry entry;
    entry.kind = KEntryKind::File;
    entry.mode = 0644;
    tree.Put(usersFile, entry);
    return action;
}

void KPlanner::PlanOwn(const KSetupRuleLine& line) {
    switch (line.GetOperation()) {
    case KSetupOperation::CopyConfig:
    case KSetupOperation::ReplaceFile:
    case KSetupOperation::CopyEntry:
        return CopyOwn(line);
    case KSetupOperation::CreateLink:
        return Link(line.Get(KSetupField::LinkTarget), line.Get(KSetupField::Path));
    case KSetupOperation::CreateEntry:
        return PlanDirectory(KINS::KRuleOperation::Create, line.Get(KSetupField::Path));
    case KSetupOperation::DeleteEntry:
        return DeleteOwn(line.Get(KSetupField::Path));
    case KSetupOperation::CreateUser:
        return CreateUser(line);
    case KSetupOperation::RunCommand:
        services.NoteCommand();
        actions.push_back(ownRules.Plan(line));
        break;
    case KSetupOperation::SetMode:
        NoteChange(line.Get(KSetupField::Path), tree.Find(line.Get(KSetupField::Path)));
        actions.push_back(ownRules.Plan(line));
        break;
    case KSetupOperation::None:
        break;
    }
}

KChangePolicy::Treatment TreatmentOf(const KSetupRuleLine& line) noexcept {
    switch (line.GetOperation()) {
    case KSetupOperation::CopyConfig:
        return KChangePolicy::Treatment::Configuration;
    case KSetupOperation::ReplaceFile:
        return KChangePolicy::Treatment::Program;
    default:
        return KChangePolicy::Treatment::ByPlace;
    }
}

void KPlanner::CopyOwn(const KSetupRuleLine& line) {
    if (line.IsPattern()) {
        CopyMatches(line.GetSource(), line.Get(KSetupField::ToDirectory), TreatmentOf(line));
    } else {
        Copy(line.GetSource(), line.GetTarget(), TreatmentOf(line));
    }
}

void KPlanner::DeleteOwn(const std::string& path) {
    if (tree.Find(path).kind == KEntryKind::Directory) {
        DeleteEmptyDirectory(path);
    } else {
        Delete(path, KChangePolicy::Named::ByScript);
    }
}

void KPlanner::CreateUser(const KSetupRuleLine& line) {
    const bool isFirst = !WasMadeByPlan(ownRules.GetUsersFile());
    NoteChange(ownRules.GetUsersFile(), tree.Find(ownRules.GetUsersFile()));
    actions.push_back(ownRules.Plan(line));
    if (isFirst && actions.back().replaces) {
        actions.back().conflict = policy.WhyNotReplace(ownRules.GetUsersFile());
    }
}

} // namespace KSETUP
