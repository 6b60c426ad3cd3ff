// SPDX-License-Identifier: MIT
#include <setup/output/KArgumentParser.h>
#include <setup/output/Licences.h>

#include <charconv>
#include <iostream>
#include <map>
#include <system_error>
#include <utility>

namespace KSETUP {

namespace {

/// For a path: an empty one is a variable that a script forgot to set.
CLI::Validator NotEmpty(const char* name) {
    const auto refuse = [name](const std::string& text) -> std::string {
        if (text.empty()) {
            throw KUsageError(Text("%s: is empty", name));
        }
        return "";
    };
    return {refuse, ""};
}

/// Other than the library's own, it adds nothing to the help.
CLI::Validator NumberFrom(int lowest, const char* name) {
    const auto refuse = [lowest, name](const std::string& text) -> std::string {
        int number = 0;
        const char* const end = text.data() + text.size();
        const std::from_chars_result read = std::from_chars(text.data(), end, number);
        if (read.ec != std::errc() || read.ptr != end || number < lowest) {
            throw KUsageError(Text("%s: \"%s\" is not a number of %s or more", name, text, lowest));
        }
        return "";
    };
    return {refuse, ""};
}

constexpr char jsonOption[] = "--json";
constexpr char eventsOption[] = "--json-events";
constexpr char descriptorOption[] = "--progress-fd";

/// An option's value where it is given and is one, else `otherwise`.
template <class Value>
Value ValueOf(const CLI::App& app, const char* name, Value otherwise) {
    try {
        const CLI::Option* option = app.get_option_no_throw(name);
        return option != nullptr && option->count() > 0 ? option->as<Value>() : otherwise;
    } catch (const CLI::ParseError&) {
        return otherwise;
    }
}

/// Adds what the options of a parse, failed or not, say of the answer.
void AddTo(KAnswerForm& form, const CLI::App& app) {
    const CLI::Option* descriptor = app.get_option_no_throw(descriptorOption);
    const bool hasDescriptor = descriptor != nullptr && descriptor->count() > 0;
    form.json = form.json || ValueOf(app, jsonOption, false);
    form.events = form.events || hasDescriptor || ValueOf(app, eventsOption, false);
    form.descriptor = hasDescriptor ? ValueOf(app, descriptorOption, -1) : form.descriptor;
}

} // namespace
KArgumentParser::KArgumentParser(KSetupArguments& toFill) : arguments(toFill) {
    UseLanguage(app);
    app.set_version_flag("--version", "ins-setup " INSPP_VERSION, Help("Print the version"));
    app.add_flag_callback(
        "--licences",
        [] { throw CLI::CallForVersion(LicencesToText(), 0); },
        Help("Print the licences of what is in the program")
    );
    AddColour(&app);
    app.require_subcommand(1);
    AddInstall();
    AddRemove();
    AddQuestions();
    AddAuthoring();
    AddHelp();
}

CLI::App* KArgumentParser::AddBelow(CLI::App& parent, const char* name, const std::string& words) {
    CLI::App* added = parent.add_subcommand(name, words)->group(Help("Subcommands"));
    added->footer(""); // else the program's own is said again
    added->get_help_ptr()->group(Help("Options"));
    return added;
}

CLI::App*
KArgumentParser::Add(CLI::App& above, const char* name, const std::string& told, Command command) {
    CLI::App* added = AddBelow(above, name, told);
    AddColour(added);
    added->callback([this, command] { arguments.command = command; });
    return added;
}

void KArgumentParser::AddKit(CLI::App* command) {
    command->add_option("--kit", arguments.kit, Help("The kit's directory; else the program's own"))
        ->type_name("DIR")
        ->check(NotEmpty("--kit"));
}

/// For the program and all commands, also those that have no colours: who calls one need not know.
void KArgumentParser::AddColour(CLI::App* command) {
    const auto take = [this](const std::string& word) {
        static const std::map<std::string, KColourChoice> choices{
            {"auto", KColourChoice::Automatic},
            {"always", KColourChoice::Always},
            {"never", KColourChoice::Never}};
        const auto choice = choices.find(word);
        if (choice == choices.end()) {
            throw KUsageError(Text("--color: \"%s\" is not auto, always or never", word));
        }
        arguments.colour = choice->second;
    };
    command
        ->add_option_function<std::string>("--color", take, Help("Colours: auto, always or never"))
        ->type_name("WHEN");
}

/// For what works without the kit, by what was kept of it.
void KArgumentParser::AddKitOrName(CLI::App* command) {
    AddKit(command);
    command
        ->add_option(
            "name",
            arguments.product,
            Help("The installed product or its service, in place of a kit")
        )
        ->type_name("NAME")
        ->check(NotEmpty("name"))
        ->excludes("--kit");
}

void KArgumentParser::AddPath(CLI::App* command) {
    command
        ->add_option(
            "path",
            arguments.productPath,
            Help("Where to; else where it is installed, or the kit's default")
        )
        ->type_name("PATH");
}

void KArgumentParser::AddJson(CLI::App* command) {
    command->add_flag(jsonOption, arguments.json, Help("Answer with one JSON object"));
}

/// For what works on the machine.
void KArgumentParser::AddRoot(CLI::App* command) {
    command
        ->add_option(
            "--root",
            arguments.root,
            Help("Work on the system in this directory tree, as for an image")
        )
        ->type_name("DIR")
        ->check(NotEmpty("--root"));
}

/// What whoever calls what changes the machine may want.
void KArgumentParser::AddCallerOptions(CLI::App* command) {
    AddJson(command);
    AddRoot(command);
    command->add_flag(
        "--detailed-exit-code",
        arguments.detailedExitCode,
        Help("Answer 5 in place of 0 when something was changed")
    );
    command->add_flag("-q,--quiet", arguments.quiet, Help("Say nothing but what fails"));
    command
        ->add_option(
            "--wait",
            arguments.waitSeconds,
            Help("Wait so long for another run of the product to end")
        )
        ->type_name("SECONDS")
        ->check(NumberFrom(0, "--wait"));
}

void KArgumentParser::AddOfflineServices(CLI::App* command) {
    command->add_flag(
        "--offline-services",
        arguments.offlineServices,
        Help("Where systemd does not run, as in an image: leave services for the next boot")
    );
}

void KArgumentParser::AddAllowConflicts(CLI::App* command) {
    command->add_flag(
        "--allow-conflicts",
        arguments.allowConflicts,
        Help("Replace and delete also what is not the product's")
    );
}

void KArgumentParser::AddAllowUnsigned(CLI::App* command) {
    command->add_flag(
        "--allow-unsigned",
        arguments.allowUnsigned,
        Help("Go on with a kit that is not signed as this machine wants it")
    );
}

void KArgumentParser::AddSign(CLI::App* command) {
    command
        ->add_option(
            "--sign", arguments.signKey, Help("Sign it with this secret key of minisign(1)")
        )
        ->type_name("KEY")
        ->check(NotEmpty("--sign"));
}

/// What whoever watches a run may want.
void KArgumentParser::AddRunOptions(CLI::App* command) {
    AddCallerOptions(command);
    command->add_flag(
        eventsOption, arguments.jsonEvents, Help("One JSON object a line while it goes on")
    );
    command
        ->add_option(
            descriptorOption,
            arguments.progressDescriptor,
            Help("The open descriptor for these lines")
        )
        ->type_name("N")
        ->check(NumberFrom(1, descriptorOption));
    AddOfflineServices(command);
    AddAllowConflicts(command);
    command->add_flag(
        "--backup", arguments.backup, Help("Keep what is overwritten or deleted, for \"restore\"")
    );
}

void KArgumentParser::AddInstall() {
    CLI::App* install =
        Add(app, "install", Help("Install the product, or a newer version"), Command::Install);
    AddKit(install);
    install
        ->add_option(
            "bundle",
            arguments.bundleOrPath,
            Help("A bundle, whose kit is installed; else the path, as the next")
        )
        ->type_name("BUNDLE");
    AddPath(install);
    AddRunOptions(install);
    AddAllowUnsigned(install);
    install
        ->add_option(
            "--addProfileLine", profileLines, Help("Write SECTION,KEY,VALUE into the configuration")
        )
        ->type_name("LINE")
        ->allow_extra_args(false);
    install
        ->add_option(
            "--values",
            arguments.values,
            Help("Take the kit's values and options of the configuration from an INI file")
        )
        ->type_name("FILE")
        ->check(NotEmpty("--values"));
    install->add_flag("-y,--yes", arguments.yes, Help("Do not ask"));
    install->add_flag(
        "--reinstall", arguments.reinstall, Help("Do it all again, also what is there already")
    );
    install->add_flag(
        "--start-services",
        arguments.startServices,
        Help("Start also services that were stopped by hand")
    );
    install->add_flag(
        "--rollback", arguments.rollback, Help("Put everything back when it fails or is stopped")
    );
    install->add_flag(
        "--no-check", arguments.noCheck, Help("Install although the script has errors")
    );
    install->add_flag(
        "--allow-downgrade", arguments.allowDowngrade, Help("Install over a newer version")
    );
}

void KArgumentParser::AddRemove() {
    CLI::App* remove = Add(app, "remove", Help("Remove the installed product"), Command::Remove);
    AddKitOrName(remove);
    AddRunOptions(remove);
    AddAllowUnsigned(remove);
    remove->add_flag(
        "--purge",
        arguments.purge,
        Help("Delete edited configuration and what is not the product's too")
    );
    remove->add_flag("-y,--yes", arguments.yes, Help("Do not ask"));
    CLI::App* restore =
        Add(app, "restore", Help("Undo the last run, if it kept a backup"), Command::Restore);
    AddKitOrName(restore);
    AddCallerOptions(restore);
    restore->add_flag(
        "--force",
        arguments.force,
        Help("Also over what was edited since, which is kept as NAME.edited")
    );
}

void KArgumentParser::AddQuestions() {
    CLI::App* status =
        Add(app, "status", Help("Tell whether the product is installed"), Command::Status);
    AddKitOrName(status);
    AddJson(status);
    AddRoot(status);
    status->add_flag(
        "--verify",
        arguments.verify,
        Help("Compare what is installed with what was; 4 if it differs")
    );
    CLI::App* list = Add(app, "list", Help("List what is installed"), Command::List);
    AddJson(list);
    AddRoot(list);
    CLI::App* verify =
        Add(app, "verify", Help("Tell who signed a kit or a bundle"), Command::Verify);
    verify->add_option("target", arguments.target, Help("The kit's directory, or the bundle"))
        ->type_name("KIT")
        ->check(NotEmpty("target"))
        ->required();
    AddJson(verify);
    AddRoot(verify);
    CLI::App* plan = AddBelow(app, "plan", Help("Tell what a run would do, without doing it"));
    plan->require_subcommand(1);
    CLI::App* planInstall =
        Add(*plan, "install", Help("What installing would do"), Command::PlanInstall);
    CLI::App* planRemove =
        Add(*plan, "remove", Help("What removing would do"), Command::PlanRemove);
    planRemove->add_flag("--purge", arguments.purge, Help("As with remove"));
    for (CLI::App* one : {planInstall, planRemove}) {
        AddKit(one);
        AddPath(one);
        AddJson(one);
        AddRoot(one);
        AddOfflineServices(one);
        AddAllowConflicts(one);
    }
}

void KArgumentParser::AddAuthoring() {
    CLI::App* check =
        Add(app, "check", Help("Look for mistakes in a kit's script"), Command::Check);
    AddKit(check);
    AddJson(check);
    check->add_flag("--strict", arguments.strict, Help("Warnings are errors"));
    CLI::App* macros =
        Add(app, "macros", Help("List the macros with their values"), Command::Macros);
    AddKit(macros);
    AddPath(macros);
    AddJson(macros);
    AddRoot(macros);

    CLI::App* kit = AddBelow(app, "kit", Help("Make a kit"));
    kit->require_subcommand(1);
    CLI::App* made = Add(*kit, "new", Help("Make a first kit"), Command::KitNew);
    made->add_option("directory", arguments.target, Help("Where; not there yet, or empty"))
        ->type_name("DIR")
        ->check(NotEmpty("directory"))
        ->required();
    made->add_flag(
        "--service",
        arguments.service,
        Help("Of a service, with a user, a unit and a data directory")
    );
    CLI::App* add = Add(*kit, "add", Help("Add a directory tree to a kit"), Command::KitAdd);
    AddKit(add);
    add->add_option("tree", arguments.tree, Help("What is to be installed"))
        ->type_name("TREE")
        ->check(NotEmpty("tree"))
        ->required();
    CLI::App* seal =
        Add(*kit, "seal", Help("Write the check sums of a kit's files"), Command::KitSeal);
    AddKit(seal);
    AddSign(seal);
    CLI::App* bundle =
        Add(*kit, "bundle", Help("Make one file of a kit that installs itself"), Command::KitBundle
        );
    AddKit(bundle);
    bundle->add_option("-o,--output", arguments.target, Help("The file"))
        ->type_name("FILE")
        ->check(NotEmpty("--output"))
        ->required();
    bundle
        ->add_option(
            "--join",
            arguments.joined,
            Help("Make one file for this architecture and for that of this bundle of the kit")
        )
        ->type_name("BUNDLE")
        ->allow_extra_args(false)
        ->check(NotEmpty("--join"));
    AddSign(bundle);
    AddKeys(*kit);
}

void KArgumentParser::AddKeys(CLI::App& kit) {
    CLI::App* key = AddBelow(kit, "key", Help("Make a key to sign kits with"));
    key->require_subcommand(1);
    CLI::App* made = Add(*key, "new", Help("Make a pair of keys"), Command::KitKeyNew);
    made->add_option("name", arguments.target, Help("The files' name, without .key and .pub"))
        ->type_name("NAME")
        ->check(NotEmpty("name"))
        ->required();
    made->add_flag(
        "--no-password", arguments.noPassword, Help("For automation: whoever has the file can sign")
    );
}

void KArgumentParser::AddHelp() {
    CLI::App* help = AddBelow(app, "help", Help("Tell about a command, or what check finds"));
    AddColour(help);
    help->add_option(
            "command", helpWords, Help("The command; behind \"check\" also a finding's name")
    )
        ->type_name("COMMAND");
    help->callback([this] { askedAbout = helpWords; });
}

KText KArgumentParser::Describe(const CLI::ParseError& error) const {
    return DescribeUsageError(error, app, app.remaining(true), last);
}

int KArgumentParser::Exit(const CLI::ParseError& error, const KText& why) {
    if (error.get_exit_code() == 0) {
        return app.exit(error);
    }
    std::cerr << why << "\n" << Text("Run with --help for more information.") << std::endl;
    return error.get_exit_code();
}

KAnswerForm KArgumentParser::GetAnswerForm() const {
    KAnswerForm form;
    const CLI::App* command = &app;
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
        form.command += (form.command.empty() ? "" : " ") + command->get_name();
    }
    AddTo(form, *command);
    // A command without these options, or a word before them that ends the parse: who asks for JSON
    // gets it.
    CLI::App rest;
    rest.allow_extras();
    rest.add_flag(jsonOption);
    rest.add_flag(eventsOption);
    rest.add_option(descriptorOption);
    std::vector<std::string> words = app.remaining(true);
    std::reverse(words.begin(), words.end());
    words.insert(words.begin(), ahead.begin(), ahead.end());
    try {
        rest.parse(words);
    } catch (const CLI::ParseError&) {
        // what was understood before counts
    }
    AddTo(form, rest);
    return form;
}

} // namespace KSETUP
