// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/output/EarlyRefusal.h>
#include <setup/output/KArgumentParser.h>

namespace KSETUP {

KAnswerForm ReadAnswerForm(int argc, const char* const* argv) {
    KSetupArguments ignored;
    KArgumentParser parser(ignored);
    try {
        parser.Parse(argc, argv);
    } catch (const CLI::ParseError&) {
        // what was understood says how it is to be told
    }
    return parser.GetAnswerForm();
}

std::optional<KSetupArguments> ReadArguments(int argc, char** argv, int& exitCode) {
    KSetupArguments arguments;
    arguments.words.assign(argv, argv + argc);
    KArgumentParser parser(arguments);
    try {
        parser.Parse(argc, argv);
        if (parser.GetAskedAbout()) {
            KSetupArguments ignored; // a parser that has parsed would tell about "help" itself
            PrintHelp(KArgumentParser(ignored).GetApp(), *parser.GetAskedAbout());
            exitCode = ExitCode::done;
            return std::nullopt;
        }
    } catch (const CLI::ParseError& error) {
        const KText why = parser.Describe(error);
        exitCode = parser.Exit(error, why) == 0 ? ExitCode::done : ExitCode::usage;
        if (exitCode != ExitCode::done) {
            TellEarlyRefusal(parser.GetAnswerForm(), exitCode, why);
        }
        return std::nullopt;
    }
    return arguments;
}

} // namespace KSETUP
