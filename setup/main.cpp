// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupArguments.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupKit.h>
#include <setup/KSetupRun.h>

#include <exception>
#include <iostream>

namespace {

int Run(const KSETUP::KSetupArguments& arguments) {
    const KSETUP::KSetupKit kit(arguments.kit);
    switch (arguments.action) {
    case KSETUP::Action::Install:
        return KSETUP::KSetupRun(kit).Install(arguments.productPath, arguments.offlineServices);
    case KSETUP::Action::Remove:
        return KSETUP::KSetupRun(kit).Remove();
    case KSETUP::Action::Status:
        return KSETUP::ReportStatus();
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
