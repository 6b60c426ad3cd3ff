// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/KSetupKit.h>
#include <setup/kit/KitAdd.h>
#include <setup/kit/KitBundle.h>
#include <setup/kit/KitNew.h>
#include <setup/kit/KitSeal.h>
#include <setup/kit/RunKit.h>
#include <setup/output/TextFormat.h>

#include <iostream>

namespace KSETUP {

namespace {

int New(const std::string& directory, KKitKind kind) {
    MakeNewKit(directory, kind);
    std::cout << "A first kit is in " << Printable(directory)
              << ". Read its install.ini, then try it:\n"
                 "    ins-setup check --kit "
              << Printable(directory) << "\n    ins-setup plan install --kit "
              << Printable(directory) << "\n";
    return ExitCode::done;
}

int Add(const KSetupArguments& arguments) {
    const KSetupKit kit(KSetupKit::ChooseDirectory(arguments.kit));
    const KAddedTree tree(arguments.tree);
    const std::vector<std::string> notes =
        AddTree(tree, kit.GetDirectory(), kit.GetScript().c_str());
    std::cout << Printable(tree.GetRoot()) << " is in the kit as payload/"
              << Printable(tree.GetName()) << ": " << tree.GetFileCount() << " files, "
              << tree.GetLinkCount() << " links, " << tree.GetDirectories().size() - 1
              << " directories below the product path.\n";
    for (const std::string& note : notes) {
        std::cout << Printable(note) << "\n";
    }
    return ExitCode::done;
}

int Seal(const KSetupArguments& arguments) {
    const KSetupKit kit(KSetupKit::ChooseDirectory(arguments.kit));
    const std::size_t count = WriteSeal(kit.GetDirectory());
    std::cout << "The check sums of " << count << " files are in " << Printable(kit.GetDirectory())
              << "/SHA256SUMS. A run refuses the kit when they are not right; seal it again after "
                 "each change.\n";
    return ExitCode::done;
}

int Bundle(const KSetupArguments& arguments) {
    const KSetupKit kit(KSetupKit::ChooseDirectory(arguments.kit));
    MakeBundle(kit.GetDirectory(), KSetupKit::GetProductName().c_str(), arguments.target);
    const std::string file = Printable(arguments.target);
    std::cout << file << " installs " << Printable(KSetupKit::GetProductName().c_str())
              << " when root runs it; what stands behind its name goes to ins-setup:\n    sh "
              << file << " status\nIt unpacks itself below /tmp. Where that is mounted noexec, "
              << "name another directory:\n    TMPDIR=/var/tmp sh " << file << "\n";
    return ExitCode::done;
}

} // namespace

int RunKit(const KSetupArguments& arguments) {
    switch (arguments.command) {
    case Command::KitNew:
        return New(arguments.target, arguments.service ? KKitKind::Service : KKitKind::Program);
    case Command::KitAdd:
        return Add(arguments);
    case Command::KitSeal:
        return Seal(arguments);
    case Command::KitBundle:
        return Bundle(arguments);
    default:
        return ExitCode::internal;
    }
}

} // namespace KSETUP
