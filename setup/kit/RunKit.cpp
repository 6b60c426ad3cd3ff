// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/KSetupKit.h>
#include <setup/kit/KitAdd.h>
#include <setup/kit/KitBundle.h>
#include <setup/kit/KitNew.h>
#include <setup/kit/KitSeal.h>
#include <setup/kit/KitSigning.h>
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
    const std::string& directory = kit.GetDirectory();
    const bool isSigned = !arguments.signKey.empty();
    const bool wasSigned = !isSigned && RemoveSignature(directory); // which the new seal has not
    const std::size_t count =
        isSigned ? SealAndSign(directory, arguments.signKey) : WriteSeal(directory);
    std::cout << "The check sums of " << count << " files are in " << Printable(directory)
              << "/SHA256SUMS. A run refuses the kit when they are not right; seal it again after "
                 "each change.\n";
    if (isSigned) {
        std::cout << "They are signed in " << Printable(directory) << "/" << sealSignatureName
                  << " as " << Printable(KKitStatement::OfProductData().ToWords()) << ".\n";
    } else if (wasSigned) {
        std::cout << "The signature that the kit had is deleted, as it does not fit any more. Sign "
                     "it with --sign KEY.\n";
    }
    return ExitCode::done;
}

int Bundle(const KSetupArguments& arguments) {
    const KSetupKit kit(KSetupKit::ChooseDirectory(arguments.kit));
    MakeBundle(kit.GetDirectory(), arguments.target, arguments.signKey);
    const std::string file = Printable(arguments.target);
    std::cout
        << file << " installs " << Printable(KSetupKit::GetProductName().c_str())
        << " when root runs it, on any Linux of this architecture; what stands behind its name "
           "goes to ins-setup:\n    "
        << (file.find('/') == std::string::npos ? "./" : "") << file << " status\n";
    if (!arguments.signKey.empty()) {
        std::cout
            << "It is signed in " << file << signatureEnding
            << ". Give both away: where ins-setup is installed, it verifies the bundle before "
               "anything of it is run:\n    ins-setup install "
            << file << "\n";
    }
    return ExitCode::done;
}

int NewKey(const KSetupArguments& arguments) {
    MakeKeyPair(arguments.target, !arguments.noPassword);
    const std::string name = Printable(arguments.target);
    std::cout
        << name << ".key signs: ins-setup kit seal --sign " << name
        << ".key\n    Keep it secret, with a copy in a safe place: who has it signs as you do, and "
           "without it\n    nobody can sign the next version."
        << (arguments.noPassword ? " It has no password: the file is all that is needed." : "")
        << "\n"
        << name
        << ".pub proves it: it goes into each kit that is signed.\n    Publish it where your users "
           "look for it; an administrator puts it into\n    "
           "/etc/ins++/trusted.d/SERVICE/.\n";
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
    case Command::KitKeyNew:
        return NewKey(arguments);
    default:
        return ExitCode::internal;
    }
}

} // namespace KSETUP
