// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupArguments.h>

#include <CLI/CLI.hpp>

#include <vector>

namespace KSETUP {

std::optional<KSetupArguments> ReadArguments(int argc, char** argv, int& exitCode) {
    KSetupArguments arguments;
    // Only taken in here: the engine reads these options from the saved command line itself.
    std::vector<std::string> profileLines;

    CLI::App app("Installs and removes the product of a kit.", "ins-setup");
    app.set_version_flag("--version", "ins-setup " INSPP_VERSION);
    app.require_subcommand(1);
    app.footer("A kit is a directory with product.ini, install.ini and the product's files.");
    const auto addKit = [&](CLI::App* command) {
        command->add_option("--kit", arguments.kit, "The kit's directory; else the program's own")
            ->type_name("DIR");
    };

    CLI::App* install = app.add_subcommand("install", "Install the product, or a newer version");
    addKit(install);
    install
        ->add_option(
            "path",
            arguments.productPath,
            "Where to; else where it is installed, or the kit's default"
        )
        ->type_name("PATH");
    install
        ->add_option(
            "--addProfileLine", profileLines, "Write SECTION,KEY,VALUE into the configuration"
        )
        ->type_name("LINE")
        ->allow_extra_args(false);
    install->add_flag(
        "--offline-services",
        arguments.offlineServices,
        "Where systemd does not run, as in an image: leave services for the next boot"
    );
    CLI::App* remove = app.add_subcommand("remove", "Remove the installed product");
    addKit(remove);
    CLI::App* status = app.add_subcommand("status", "Tell whether the product is installed");
    addKit(status);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        exitCode = app.exit(error) == 0 ? ExitCode::done : ExitCode::usage;
        return std::nullopt;
    }
    arguments.action = install->parsed()  ? Action::Install
                       : remove->parsed() ? Action::Remove
                                          : Action::Status;
    return arguments;
}

} // namespace KSETUP
