// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/CommandHelp.h>
#include <setup/output/KSetupArguments.h>
#include <setup/output/UsageError.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace KSETUP {

/// Describes the commands and their options to the library that reads them, and fills the arguments.
///
/// Borrows the arguments.
/// Threads  one at a time
class KArgumentParser {
  public:
    explicit KArgumentParser(KSetupArguments& toFill);
    void Parse(int argc, const char* const* argv) {
        last = argc > 1 ? argv[argc - 1] : "";
        ahead.assign(
            std::make_reverse_iterator(argv + argc),
            std::make_reverse_iterator(argv + std::min(argc, 1))
        );
        app.parse(ahead); // the last word first
    }
    /// Tells what was asked for, as help, or why the command line is refused; 0 for the former.
    int Exit(const CLI::ParseError& error, const KText& why);
    KText Describe(const CLI::ParseError& error) const;
    const CLI::App& GetApp() const { return app; }
    /// What "help" was asked about; nothing for another command.
    const std::optional<std::vector<std::string>>& GetAskedAbout() const { return askedAbout; }
    KAnswerForm GetAnswerForm() const;

  private:
    static CLI::App* AddBelow(CLI::App& parent, const char* name, const std::string& words);
    CLI::App* Add(CLI::App& above, const char* name, const std::string& told, Command command);
    void AddInstall();
    void AddRemove();
    void AddQuestions();
    void AddAuthoring();
    void AddKit(CLI::App* command);
    void AddKitOrName(CLI::App* command);
    void AddPath(CLI::App* command);
    void AddJson(CLI::App* command);
    void AddRoot(CLI::App* command);
    void AddColour(CLI::App* command);
    void AddCallerOptions(CLI::App* command);
    void AddRunOptions(CLI::App* command);
    void AddOfflineServices(CLI::App* command);
    void AddAllowConflicts(CLI::App* command);
    void AddAllowUnsigned(CLI::App* command);
    void AddSign(CLI::App* command);
    void AddKeys(CLI::App& kit);
    void AddHelp();

    KSetupArguments& arguments;
    // Only taken in here: the engine reads these options from the saved command line itself.
    std::vector<std::string> profileLines;
    std::vector<std::string> helpWords;
    std::optional<std::vector<std::string>> askedAbout;
    std::string last;               // word of the command line
    std::vector<std::string> ahead; // after a parse: words that it did not come to
    CLI::App app{Help("Installs and removes the product of a kit."), "ins-setup"};
};

} // namespace KSETUP
