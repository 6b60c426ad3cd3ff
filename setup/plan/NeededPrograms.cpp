// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/NeededPrograms.h>
#include <setup/script/CommandWords.h>
#include <setup/script/SecretNames.h>

#include <array>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>

#include <sys/processes/ProgramRun.h>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

constexpr const char* shell = "/bin/sh";
/// Some shells answer for any file that is named by a path.
constexpr const char* question = "case $1 in */*) [ -f \"$1\" ] && [ -x \"$1\" ] && echo yes ;; "
                                 "*) command -v -- \"$1\" ;; esac";
constexpr const char* usersProgram = "systemd-sysusers";
/// As the environment of a run has it.
constexpr std::array programPlaces =
    std::to_array<std::string_view>({"/usr/sbin/", "/usr/bin/", "/sbin/", "/bin/"});
/// A line with one of them may go well without its first program.
constexpr std::string_view ofLists = "|&;()\n`";

/// The program of a line that runs one and nothing else; empty for any other line.
std::string ProgramOf(const std::string& command) {
    const std::vector<KCommandWord> words = WordsOf(command);
    const bool isSimple = command.find_first_of(ofLists) == std::string::npos && !words.empty() &&
                          !words.front().isExpanded &&
                          words.front().text.find('=') == std::string::npos;
    return isSimple ? words.front().text : "";
}

class ProgramSearch {
  public:
    void NoteMade(const std::string& path) { made.insert(NormalPath(path)); }

    /// What is missing for a command with this program, which may be empty; empty when nothing is.
    std::optional<KMissingProgram> Find(const std::string& program) const {
        std::string answer;
        const unsigned failed = KSYS::ReadProgram({shell, "-c", question, shell, program}, answer);
        if (IsMade(shell) || (failed == 0 && (program.empty() || !answer.empty()))) {
            return std::nullopt; // a shell that the plan brings cannot be asked yet
        }
        if (failed != 0) {
            return KMissingProgram{
                Text(
                    "%s cannot be run (%s), and commands need it",
                    shell,
                    std::generic_category().message(static_cast<int>(failed))
                ),
                Text("Put a shell there that this machine can run.")};
        }
        if (IsMade(program)) {
            return std::nullopt;
        }
        return KMissingProgram{
            Text("there is no program %s that can be run", program),
            Text("Install what has it there first.")};
    }

  private:
    bool IsMade(const std::string& program) const {
        if (program.find('/') == std::string::npos) {
            for (const std::string_view place : programPlaces) {
                if (made.contains(std::string(place) + program)) {
                    return true;
                }
            }
            return false;
        }
        std::error_code missing; // then nothing was made by that path either
        const std::string parent =
            std::filesystem::weakly_canonical(ParentPath(program), missing).string();
        return made.contains(NormalPath(program)) ||
               made.contains(JoinPath(parent, std::filesystem::path(program).filename().string()));
    }

    std::set<std::string> made;
};

/// Nothing for an action that runs no command.
std::optional<std::string> ProgramFor(const KPlannedAction& action) {
    switch (action.kind) {
    case Kind::RunCommand:
        return ProgramOf(*action.path);
    case Kind::StartCommand: // may fail
        return "";
    case Kind::CreateUser:
        return usersProgram;
    default:
        return std::nullopt;
    }
}

} // namespace

std::optional<KMissingProgram> FindMissingProgram(const KPlan& plan, const std::string& script) {
    ProgramSearch search;
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            if (action.kind == Kind::CopyFile || action.kind == Kind::MakeLink) {
                search.NoteMade(*action.path);
            }
            const std::optional<std::string> program = ProgramFor(action);
            if (!program) {
                continue;
            }
            if (std::optional<KMissingProgram> missing = search.Find(*program)) {
                missing->words = Text(
                    "%s: %s would fail: %s",
                    script + ":" + std::to_string(rule.rule.line.number),
                    MaskedLine(rule.rule.line.type, rule.rule.line.value),
                    missing->words
                );
                return missing;
            }
            if (action.kind != Kind::CreateUser) {
                return std::nullopt;
            }
        }
    }
    return std::nullopt;
}

} // namespace KSETUP
