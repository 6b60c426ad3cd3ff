// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/check/RunCheck.h>
#include <setup/kit/KSetupKit.h>
#include <setup/kit/RunKit.h>
#include <setup/output/KSetupArguments.h>
#include <setup/plan/RunPlan.h>
#include <setup/run/KSetupRun.h>

#include <exception>
#include <iostream>

namespace {

using KSETUP::Command;

int Run(const KSETUP::KSetupArguments& arguments) {
    switch (arguments.command) {
    case Command::Install:
        return KSETUP::KSetupRun(KSETUP::KSetupKit(arguments.kit), arguments).Install();
    case Command::Remove:
        return KSETUP::KSetupRun(KSETUP::KSetupKit(arguments.kit), arguments).Remove();
    case Command::Status:
        return KSETUP::ReportStatus(KSETUP::KSetupKit(arguments.kit), arguments);
    case Command::Restore:
        return KSETUP::Restore(KSETUP::KSetupKit(arguments.kit), arguments);
    case Command::Check:
        return KSETUP::RunCheck(arguments);
    case Command::PlanInstall:
    case Command::PlanRemove:
        return KSETUP::RunPlan(arguments);
    case Command::Macros:
        return KSETUP::RunMacros(arguments);
    case Command::KitNew:
    case Command::KitAdd:
    case Command::KitSeal:
    case Command::KitBundle:
        return KSETUP::RunKit(arguments);
    }
    return KSETUP::ExitCode::internal;
}

} // namespace

int main(int argc, char** argv) {
    int exitCode = KSETUP::ExitCode::done;
    try {
        const auto arguments = KSETUP::ReadArguments(argc, argv, exitCode);
        return arguments ? Run(*arguments) : exitCode;
    } catch (const KSETUP::KSetupFailure& failure) {
        std::cerr << "ins-setup: " << failure.what() << "\n";
        return failure.GetExitCode();
    } catch (const KSUP::KError& error) {
        std::cerr << "ins-setup: " << error.GetSummary().c_str() << "\n";
    } catch (const std::exception& error) {
        std::cerr << "ins-setup: " << error.what() << "\n";
    }
    return KSETUP::ExitCode::internal;
}
