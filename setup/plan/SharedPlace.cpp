// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/files/TrustedPath.h>
#include <setup/plan/SharedPlace.h>

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

std::string WhyPlaceIsShared(const KOwnership& ownership, const std::string& productPath) {
    const bool isOwn = ownership.Find(productPath) != nullptr || ownership.WasBegun(productPath);
    return WhyOthersCanExchange(
        NormalPath(productPath), isOwn ? KPathEnd::IsOthersBusiness : KPathEnd::Counts
    );
}

std::string DescribeSharedPlace(const KOwnership& ownership, const std::string& productPath) {
    const std::string why = WhyPlaceIsShared(ownership, productPath);
    return why.empty() ? ""
                       : "Others than root can exchange what is installed in " +
                             NormalPath(productPath) + ": " + why + ".";
}

namespace {

/// Of a program below the product path. Directories that the product made are its own business, and
/// so is what it lays into them.
std::string
WhyShared(const KOwnership& ownership, const std::string& program, const std::string& productPath) {
    std::string at = productPath;
    std::string why;
    while (why.empty() && at != program && WhyOthersCanExchange(at).empty()) {
        at = program.substr(0, program.find('/', at.size() + 1));
        const bool isOwn = ownership.Find(at) != nullptr || ownership.WasBegun(at);
        why = isOwn ? "" : WhyOthersCanExchange(at);
    }
    return why;
}

/// Of the programs of services.
std::string
WhyProgramIsShared(const KPlan& plan, const KOwnership& ownership, const std::string& productPath) {
    std::string found;
    plan.ForEachAction([&](const KPlannedAction& action) {
        const std::string& program = action.source;
        if (!found.empty() || action.kind != KPlannedAction::Kind::InstallService ||
            !program.starts_with('/')) {
            return;
        }
        const std::string path = NormalPath(program);
        const std::string own = NormalPath(productPath);
        const bool isBelow = path != own && IsAtOrBelow(path, own);
        const std::string why =
            isBelow ? WhyShared(ownership, path, own) : WhyOthersCanExchange(program);
        if (!why.empty()) {
            found = why + ", so others than root can exchange " + program + ", which the service " +
                    action.path + " runs";
        }
    });
    return found;
}

} // namespace

std::string
WhySharedPlace(const KPlan& plan, const KOwnership& ownership, const std::string& productPath) {
    const std::string why = RunsPrograms(plan) ? WhyPlaceIsShared(ownership, productPath) : "";
    return why.empty() ? WhyProgramIsShared(plan, ownership, productPath)
                       : why + ", so others than root can exchange what is installed in " +
                             NormalPath(productPath) +
                             ", and the script has commands or services, which run it";
}

} // namespace KSETUP
