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
    const std::string shown = Printable(directory);
    std::cout << Text(
                     "A first kit is in %s. Read its install.ini, then try it:\n"
                     "    ins-setup check --kit %s\n"
                     "    ins-setup plan install --kit %s",
                     shown,
                     shown,
                     shown
                 )
              << "\n";
    return ExitCode::done;
}

int Add(const KSetupArguments& arguments) {
    const KSetupKit kit(KSetupKit::ChooseDirectory(arguments.kit));
    const KAddedTree tree(arguments.tree);
    const std::vector<KText> notes = AddTree(tree, kit.GetDirectory(), kit.GetScript().c_str());
    const std::size_t directories = tree.GetDirectories().size() - 1;
    std::cout << Text(
                     "%s is in the kit as payload/%s: %s, %s, %s below the product path.",
                     Printable(tree.GetRoot()),
                     Printable(tree.GetName()),
                     Counted(tree.GetFileCount(), "%s file", "%s files"),
                     Counted(tree.GetLinkCount(), "%s link", "%s links"),
                     Counted(directories, "%s directory", "%s directories")
                 )
              << "\n";
    for (const KText& note : notes) {
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
    std::cout << Counted(
                     count,
                     "The check sum of %s file is in %s/SHA256SUMS.",
                     "The check sums of %s files are in %s/SHA256SUMS.",
                     Printable(directory)
                 )
              << " "
              << Text("A run refuses the kit when they are not right; seal it again after each "
                      "change.")
              << "\n";
    if (isSigned) {
        std::cout << Text(
                         "They are signed in %s/%s as %s.",
                         Printable(directory),
                         sealSignatureName,
                         Printable(KKitStatement::OfProductData().ToWords())
                     )
                  << "\n";
    } else if (wasSigned) {
        std::cout << Text("The signature that the kit had is deleted, as it does not fit any more. "
                          "Sign it with --sign KEY.")
                  << "\n";
    }
    return ExitCode::done;
}

int Bundle(const KSetupArguments& arguments) {
    const KSetupKit kit(KSetupKit::ChooseDirectory(arguments.kit));
    const std::string architectures =
        MakeBundle(kit.GetDirectory(), arguments.target, arguments.signKey, arguments.joined);
    const std::string file = Printable(arguments.target);
    const std::string called = (file.find('/') == std::string::npos ? "./" : "") + file;
    const std::string product = Printable(KSetupKit::GetProductName().c_str());
    std::cout << (architectures.empty()
                      ? Text(
                            "%s installs %s when root runs it, on any Linux of this architecture; "
                            "what stands behind its name goes to ins-setup:\n    %s status",
                            file,
                            product,
                            called
                        )
                      : Text(
                            "%s installs %s when root runs it, on any Linux of %s; what stands "
                            "behind its name goes to ins-setup:\n    %s status",
                            file,
                            product,
                            architectures,
                            called
                        ))
              << "\n";
    if (!arguments.signKey.empty()) {
        std::cout << Text(
                         "It is signed in %s. Give both away: where ins-setup is installed, it "
                         "verifies the bundle before anything of it is run:\n"
                         "    ins-setup install %s",
                         file + signatureEnding,
                         file
                     )
                  << "\n";
    }
    return ExitCode::done;
}

int NewKey(const KSetupArguments& arguments) {
    MakeKeyPair(arguments.target, !arguments.noPassword);
    const std::string name = Printable(arguments.target);
    std::cout << Text(
                     "%s.key signs: ins-setup kit seal --sign %s.key\n"
                     "    Keep it secret, with a copy in a safe place: who has it signs as you do, "
                     "and without it\n"
                     "    nobody can sign the next version.",
                     name,
                     name
                 )
              << (arguments.noPassword
                      ? " " + Text("It has no password: the file is all that is needed.")
                      : "")
              << "\n"
              << Text(
                     "%s.pub proves it: it goes into each kit that is signed.\n"
                     "    Publish it where your users look for it; an administrator puts it into\n"
                     "    /etc/ins++/trusted.d/SERVICE/.",
                     name
                 )
              << "\n";
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
