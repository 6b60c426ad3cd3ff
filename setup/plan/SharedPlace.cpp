// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/files/TrustedPath.h>
#include <setup/plan/SharedPlace.h>
#include <setup/script/CommandWords.h>

#include <vector>

namespace KSETUP {

bool RunsPrograms(const KPlan& plan) {
    using Kind = KPlannedAction::Kind;
    bool runs = false;
    plan.ForEachAction([&](const KPlannedAction& action) {
        runs = runs || action.kind == Kind::StartCommand || action.kind == Kind::RunCommand ||
               action.kind == Kind::InstallService || action.kind == Kind::StartService;
    });
    return runs;
}

KText WhyPlaceIsShared(const KOwnership& ownership, const std::string& productPath) {
    const bool isOwn = ownership.Find(productPath) != nullptr || ownership.WasBegun(productPath);
    return WhyOthersCanExchange(
        NormalPath(productPath), isOwn ? KPathEnd::IsOthersBusiness : KPathEnd::Counts
    );
}

KText DescribeSharedPlace(const KOwnership& ownership, const std::string& productPath) {
    const KText why = WhyPlaceIsShared(ownership, productPath);
    return why.empty() ? ""
                       : Text(
                             "Others than root can exchange what is installed in %s: %s.",
                             NormalPath(productPath),
                             why
                         );
}

namespace {

/// Of a program below the product path. Directories that the product made are its own business, and
/// so is what it lays into them.
KText WhyShared(
    const KOwnership& ownership, const std::string& program, const std::string& productPath
) {
    std::string at = productPath;
    KText why;
    while (why.empty() && at != program && WhyOthersCanExchange(at).empty()) {
        at = program.substr(0, program.find('/', at.size() + 1));
        const bool isOwn = ownership.Find(at) != nullptr || ownership.WasBegun(at);
        why = isOwn ? "" : WhyOthersCanExchange(at);
    }
    return why;
}

bool IsInProduct(const std::string& path, const std::string& productPath) {
    return path != productPath && IsAtOrBelow(path, productPath);
}

/// What root is about to run: the program of a service; of a command the first word, and those that
/// lie in the product, as the script that a shell is to run.
std::vector<std::string> ProgramsOf(const KPlannedAction& action, const std::string& productPath) {
    using Kind = KPlannedAction::Kind;
    std::vector<std::string> programs;
    if (action.kind == Kind::InstallService) {
        programs.push_back(*action.source);
    } else if (action.kind == Kind::StartCommand || action.kind == Kind::RunCommand) {
        for (const KCommandWord& word : WordsOf(*action.path)) {
            if (programs.empty() || IsInProduct(NormalPath(word.text), productPath)) {
                programs.push_back(word.text);
            }
        }
    }
    std::erase_if(programs, [](const std::string& path) { return !path.starts_with('/'); });
    return programs;
}

/// Of the programs of services and commands.
KText WhyProgramIsShared(
    const KPlan& plan, const KOwnership& ownership, const std::string& productPath
) {
    const std::string own = NormalPath(productPath);
    KText found;
    plan.ForEachAction([&](const KPlannedAction& action) {
        for (const std::string& program : ProgramsOf(action, own)) {
            const std::string path = NormalPath(program);
            const KText why = IsInProduct(path, own) ? WhyShared(ownership, path, own)
                                                     : WhyOthersCanExchange(program);
            if (found.empty() && !why.empty()) {
                const bool isService = action.kind == KPlannedAction::Kind::InstallService;
                found = isService
                            ? Text(
                                  "%s, so others than root can exchange %s, which the service "
                                  "%s runs",
                                  why,
                                  program,
                                  *action.path
                              )
                            : Text(
                                  "%s, so others than root can exchange %s, which a command "
                                  "uses",
                                  why,
                                  program
                              );
            }
        }
    });
    return found;
}

} // namespace

KText WhySharedPlace(
    const KPlan& plan, const KOwnership& ownership, const std::string& productPath
) {
    const KText why = RunsPrograms(plan) ? WhyPlaceIsShared(ownership, productPath) : "";
    return why.empty() ? WhyProgramIsShared(plan, ownership, productPath)
                       : Text(
                             "%s, so others than root can exchange what is installed in %s, and "
                             "the script has commands or services, which run it",
                             why,
                             NormalPath(productPath)
                         );
}

} // namespace KSETUP
