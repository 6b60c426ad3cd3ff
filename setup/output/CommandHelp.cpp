// SPDX-License-Identifier: MIT
#include <setup/output/CheckHelp.h>
#include <setup/output/CommandHelp.h>
#include <setup/output/UsageError.h>
#include <setup/output/WordDistance.h>
#include <setup/text/KText.h>
#include <setup/text/Translation.h>

#include <iostream>

#include <sys/processes/Terminal.h>
#include <unistd.h>

namespace KSETUP {

namespace {

constexpr const char* footer =
    TextFormat("A kit is a directory with product.ini, install.ini and the product's files.\n"
               "\n"
               "Exit codes:\n"
               "    0  done\n"
               "    1  a rule failed\n"
               "    3  not installed\n"
               "    4  what is installed differs\n"
               "    5  changed, where asked for\n"
               "    6  what is not the product's would be changed\n"
               "   64  usage\n"
               "   65  the script, its seal or its signature is not right\n"
               "   66  kit or script not found\n"
               "   69  no service manager, or a service failed\n"
               "   70  internal\n"
               "   73  no space, or a target that cannot be written\n"
               "   75  another run goes on\n"
               "   77  not root\n"
               "  130  stopped by Ctrl-C; 143 by SIGTERM, 129 by SIGHUP\n"
               "\n"
               "See ins-setup(8) and, for scripts, ins-script(5).");
constexpr unsigned narrowColumns = 60;  // of a terminal with no room for two columns
constexpr std::size_t narrowIndent = 6; // of what stands below an option there

void PrintFinding(const std::string& asked) {
    std::vector<std::string> names;
    for (const KCheckHelp& one : ReadCheckHelp(GetCheckPage())) {
        if (one.name == asked) {
            std::cout << ToText(one, KSYS::TerminalColumns(STDOUT_FILENO));
            return;
        }
        names.push_back(one.name);
    }
    const std::string nearest = NearestWord(asked, names);
    throw KUsageError(
        nearest.empty()
            ? Text(
                  "check finds nothing that is called \"%s\". \"ins-setup help check\" "
                  "lists what it finds.",
                  asked
              )
            : Text("check finds nothing that is called \"%s\".", asked) + DidYouMean(nearest)
    );
}

} // namespace

std::string Help(const char* english) {
    return FindTranslation(english);
}

void UseLanguage(CLI::App& app) {
    const auto formatter = app.get_formatter();
    formatter->label("Usage", Help("Usage"));
    formatter->label("OPTIONS", Help("OPTIONS"));
    formatter->label("SUBCOMMAND", Help("SUBCOMMAND"));
    formatter->label("SUBCOMMANDS", Help("SUBCOMMANDS"));
    formatter->label("Positionals", Help("Positionals"));
    formatter->label("POSITIONALS", Help("POSITIONALS"));
    formatter->label("REQUIRED", Help("REQUIRED"));
    formatter->label("Excludes", Help("Excludes"));
    const unsigned columns = KSYS::TerminalColumns(STDOUT_FILENO);
    if (columns != 0 && columns < narrowColumns) {
        formatter->column_width(narrowIndent);
    }
    app.option_defaults()->group(Help("Options"));
    app.set_help_flag("-h,--help", Help("Print this help message and exit"))
        ->group(Help("Options"));
    app.footer(Help(footer));
}

void PrintHelp(const CLI::App& app, const std::vector<std::string>& words) {
    const CLI::App* command = &app;
    std::string name = app.get_name();
    for (auto word = words.begin(); word != words.end(); ++word) {
        if (command->get_name() == "check") {
            PrintFinding(*word);
            return;
        }
        const std::vector<const CLI::App*> found =
            command->get_subcommands([&](const CLI::App* one) { return one->check_name(*word); });
        const CLI::App* below = found.empty() ? nullptr : found.front();
        if (below == nullptr) {
            const std::string nearest = NearestWord(*word, CommandsBelow(*command));
            throw KUsageError(
                Text(
                    "%s has no command \"%s\".",
                    name + (command == &app ? "" : " " + command->get_name()),
                    *word
                ) +
                DidYouMean(nearest)
            );
        }
        name += command == &app ? "" : " " + command->get_name();
        command = below;
    }
    std::cout << command->help(command == &app ? "" : name);
    if (command->get_name() == "check") {
        std::cout << Text("Findings, of which \"ins-setup help check NAME\" tells more:") << "\n"
                  << ToText(ReadCheckHelp(GetCheckPage()));
    }
}

} // namespace KSETUP
