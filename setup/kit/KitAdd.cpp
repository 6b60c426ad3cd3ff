// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/kit/KitAdd.h>
#include <setup/kit/KitFiles.h>
#include <setup/kit/KitSeal.h>
#include <setup/kit/TreeRules.h>
#include <setup/kit/TreeUnits.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

/// Of a file in a kit. What may be more than that a rule sets, where the file is installed: in a
/// kit it would be anybody's, or refused.
constexpr mode_t carriedModes = 0755;
constexpr std::size_t patternsShown = 5;

void RefuseOverlap(const KAddedTree& tree, const std::string& kit) {
    if (IsAtOrBelow(tree.GetRoot(), kit) || IsAtOrBelow(kit, tree.GetRoot())) {
        throw KSetupFailure(
            ExitCode::usage,
            Text(
                "%s: the tree and the kit %s lie in each other. The files are copied into the kit; "
                "keep the tree elsewhere.",
                tree.GetRoot(),
                kit
            )
        );
    }
}

void CopyTree(const KAddedTree& tree, const fs::path& to) {
    MakeDirectories(to);
    for (const auto& [path, directory] : tree.GetDirectories()) {
        // One without files has its rule and needs no place in the kit.
        if (!directory.files.empty()) {
            MakeDirectories(to / path);
        }
        for (const KAddedTree::File& file : directory.files) {
            const fs::path name = fs::path(path) / file.name;
            CopyBytes(tree.GetRoot() / name, to / name, carriedModes & file.rights.mode);
        }
    }
}

void Rename(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (error) {
        FailOnWrite(to, error.value());
    }
}

/// "a, b and 3 more"
KText ListOf(const std::vector<std::string>& names) {
    std::string list;
    for (std::size_t at = 0; at < std::min(names.size(), patternsShown); ++at) {
        list += (at == 0 ? "" : ", ") + names[at];
    }
    return names.size() <= patternsShown
               ? KText(list)
               : Text("%s and %s more", list, names.size() - patternsShown);
}

/// What of a tree is worth a look, each with the paths that it is true of.
struct Findings {
    std::vector<std::string> setId;
    std::vector<std::string> lostWriting;
    std::vector<std::string> owned;

    void Note(const std::string& path, const KAddedTree::Rights& rights, bool isFile) {
        if (isFile && (rights.mode & (S_ISUID | S_ISGID)) != 0) {
            setId.push_back(path);
        }
        if (rights.lostWriting) {
            lostWriting.push_back(path);
        }
        if (rights.owner != "root" || rights.group != "root") {
            owned.push_back(path + " (" + rights.owner + ":" + rights.group + ")");
        }
    }
};

Findings FindingsOf(const KAddedTree& tree) {
    Findings found;
    for (const auto& [path, directory] : tree.GetDirectories()) {
        if (!path.empty()) {
            found.Note(path, directory.rights, false);
        }
        for (const KAddedTree::File& file : directory.files) {
            found.Note((fs::path(path) / file.name).string(), file.rights, true);
        }
    }
    return found;
}

std::vector<KText> Notes(const KAddedTree& tree, const std::string& kit) {
    const Findings found = FindingsOf(tree);
    std::vector<KText> notes;
    if (!found.lostWriting.empty()) {
        notes.push_back(Text(
            "Group or others could write to these, which they cannot in the kit and where it is "
            "installed: %s.",
            ListOf(found.lostWriting)
        ));
    }
    if (!found.setId.empty()) {
        notes.push_back(Text(
            "Whoever runs these has the rights of their owner or group, by a rule mode=set: %s.",
            ListOf(found.setId)
        ));
    }
    if (!found.owned.empty()) {
        notes.push_back(Text(
            "These have owners that the machine must know, or that a rule user=create makes: %s.",
            ListOf(found.owned)
        ));
    }
    for (const KTreeUnit& unit : FindUnits(tree)) {
        if (!unit.objection.empty()) {
            notes.push_back(unit.objection);
        }
    }
    if (IsSealed(kit)) {
        notes.emplace_back(
            Text("The kit's seal does not fit any more: seal it again with \"ins-setup kit seal\".")
        );
    }
    return notes;
}

} // namespace

std::vector<KText>
AddTree(const KAddedTree& tree, const std::string& kitDirectory, const std::string& scriptPath) {
    RefuseOverlap(tree, kitDirectory);
    tree.RefuseUnlessExpressible();
    const std::string name = tree.GetName();
    const std::string script = ReadBytes(scriptPath);
    const std::string merged = MergeRules(script, name, WriteRules(tree));
    const fs::path payload = fs::path(kitDirectory) / payloadDirectory;
    const fs::path target = payload / name;
    std::error_code unknown; // then the rename tells
    const bool replaces = fs::exists(fs::symlink_status(target, unknown));
    if (replaces && !HasRules(script, name)) {
        throw KSetupFailure(
            ExitCode::usage,
            Text(
                "%s: this is yours, no tree of that name was added before. Give the tree another "
                "name, or move this away.",
                target.string()
            )
        );
    }
    MakeDirectories(payload);
    // Beside the kit's files until all is copied: a kit is never half of one and half of the other.
    const KTemporaryDirectory work(payload);
    const fs::path added = work.GetPath() / "new";
    const fs::path former = work.GetPath() / "former";
    CopyTree(tree, added);
    const auto mode = static_cast<mode_t>(fs::status(scriptPath).permissions());
    if (replaces) {
        Rename(target, former);
    }
    try {
        Rename(added, target);
        WriteBytes(scriptPath, merged, mode);
    } catch (const KSetupFailure&) {
        std::error_code stays; // the first failure is what is told
        fs::rename(target, added, stays);
        if (replaces) {
            fs::rename(former, target, stays);
        }
        throw;
    }
    return Notes(tree, kitDirectory);
}

} // namespace KSETUP
