// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/kit/KitAdd.h>
#include <setup/kit/KitFiles.h>
#include <setup/kit/KitSeal.h>
#include <setup/kit/TreeRules.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr mode_t usualMode = 0755;

void RefuseOverlap(const KAddedTree& tree, const std::string& kit) {
    if (IsAtOrBelow(tree.GetRoot(), kit) || IsAtOrBelow(kit, tree.GetRoot())) {
        throw KSetupFailure(
            ExitCode::usage,
            tree.GetRoot() + ": the tree and the kit " + kit +
                " lie in each other. The files are copied into the kit; keep the tree elsewhere."
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
        for (const std::string& name : directory.files) {
            CopyBytes(fs::path(tree.GetRoot()) / path / name, to / path / name);
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

std::vector<std::string> Notes(const KAddedTree& tree, const std::string& kit) {
    std::vector<std::string> notes;
    for (const auto& [path, directory] : tree.GetDirectories()) {
        if (!path.empty() && directory.mode != usualMode) {
            std::array<char, 8> mode{};
            std::snprintf(mode.data(), mode.size(), "%04o", directory.mode);
            notes.push_back(
                path + " has the mode " + mode.data() +
                ", but rules make directories with 0755. If that matters, change it by a program "
                "of the kit that a process rule runs."
            );
        }
    }
    if (IsSealed(kit)) {
        notes.emplace_back(
            "The kit's seal does not fit any more: seal it again with \"ins-setup kit seal\"."
        );
    }
    return notes;
}

} // namespace

std::vector<std::string>
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
            target.string() + ": this is yours, no tree of that name was added before. Give the "
                              "tree another name, or move this away."
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
