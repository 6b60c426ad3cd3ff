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
    const auto refuse = [&](const CLI::ParseError& error) {
        exitCode = parser.Exit(error) == 0 ? ExitCode::done : ExitCode::usage;
        if (exitCode != ExitCode::done) {
            TellEarlyRefusal(parser.GetAnswerForm(), exitCode, error.what());
        }
    };
    try {
        parser.Parse(argc, argv);
        if (parser.GetAskedAbout()) {
            KSetupArguments ignored; // a parser that has parsed would tell about "help" itself
            PrintHelp(KArgumentParser(ignored).GetApp(), *parser.GetAskedAbout());
            exitCode = ExitCode::done;
            return std::nullopt;
        }
    } catch (const CLI::RequiredError& error) {
        // A misspelt command says more than that one is missing.
        const std::vector<std::string> unknown = parser.GetUnknown();
        if (unknown.empty()) {
            refuse(error);
        } else {
            refuse(UnexpectedWord(parser.GetApp(), unknown.front()));
        }
        return std::nullopt;
    } catch (const CLI::ExtrasError& error) {
        const std::vector<std::string> unknown = parser.GetUnknown();
        refuse(
            unknown.empty() ? CLI::ParseError(error)
                            : UnexpectedWord(parser.GetApp(), unknown.front())
        );
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        refuse(error);
        return std::nullopt;
    }
    return arguments;
}

} // namespace KSETUP
