// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupStop.h>
#include <setup/check/RunCheck.h>
#include <setup/kit/KSetupKit.h>
#include <setup/kit/RunKit.h>
#include <setup/output/EarlyRefusal.h>
#include <setup/output/KPrintableOutput.h>
#include <setup/output/KReporter.h>
#include <setup/output/KRunReport.h>
#include <setup/output/KSetupArguments.h>
#include <setup/plan/RunPlan.h>
#include <setup/preflight/KUnpackedBundle.h>
#include <setup/preflight/Preflight.h>
#include <setup/preflight/ValuesFile.h>
#include <setup/process/ImageRoot.h>
#include <setup/process/PrepareProcess.h>
#include <setup/run/ListProducts.h>
#include <setup/run/RunFailure.h>
#include <setup/run/Runs.h>
#include <setup/run/Status.h>
#include <setup/run/Verify.h>
#include <setup/state/KProductList.h>
#include <sup++/KError.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include <sys/processes/ProcessIsolation.h>
#include <sys/processes/ProcessMemory.h>
#include <sys/processes/Terminal.h>
#include <unistd.h>

namespace {

using KSETUP::Command;
using KSETUP::KRunReport;
using KSETUP::KSetupArguments;

void Refuse(KRunReport& report, int exitCode, const KSETUP::KText& why) {
    report.result = KSETUP::KRunResult::Refused;
    report.exitCode = exitCode;
    report.error = why;
}

/// Does `work`, and tells what became of it, in the way that was asked for, also when it fails.
int Tell(
    const KSetupArguments& arguments,
    const char* command,
    const std::function<void(KSETUP::KReporter&, KRunReport&)>& work
) {
    KSETUP::KReporter reporter(arguments);
    KRunReport report;
    report.command = command;
    report.root = arguments.root;
    try {
        work(reporter, report);
    } catch (const KSETUP::KSetupFailure& failure) {
        Refuse(report, failure.GetExitCode(), failure.GetText());
    } catch (const KSUP::KError& error) {
        Refuse(report, KSETUP::ExitCode::internal, KSETUP::DescribeError(error));
    } catch (const std::exception& error) {
        Refuse(report, KSETUP::ExitCode::internal, error.what());
    }
    reporter.Finish(report);
    return report.exitCode;
}

/// The kit that was named, or the one that is kept of a product that was.
std::string KitOf(const KSetupArguments& arguments) {
    if (!arguments.product.empty()) {
        return KSETUP::FindKeptKit(arguments.product);
    }
    const bool takesName = arguments.command != Command::Install;
    if (takesName && arguments.kit.empty() && !KSETUP::KSetupKit::IsBesideProgram()) {
        throw KSETUP::KSetupFailure(
            KSETUP::ExitCode::noKit,
            KSETUP::Text(
                "no product is named. \"ins-setup list\" lists what is installed: name one "
                "of these, or a kit with --kit DIR."
            )
        );
    }
    return arguments.kit;
}

/// A kit in one file is unpacked; nothing of it is run before it is verified.
std::unique_ptr<KSETUP::KUnpackedBundle>
Unpack(const KSetupArguments& arguments, KSYS::KStopSignals& signals) {
    using Signature = KSETUP::KUnpackedBundle::Signature;
    if (arguments.bundle.empty()) {
        return nullptr;
    }
    return std::make_unique<KSETUP::KUnpackedBundle>(
        arguments.bundle,
        arguments.allowUnsigned ? Signature::Ignored : Signature::Required,
        [&signals] { return signals.Take() != 0; },
        KSETUP::KUnpackedBundle::ParentFor(arguments)
    );
}

/// A run takes note of signals from its first step on; one that is stopped before its first change
/// answers with the signal.
int RunOnMachine(
    KSetupArguments& arguments, const char* command, void (*run)(const KSETUP::KRunContext& context)
) {
    return Tell(arguments, command, [&](KSETUP::KReporter& reporter, KRunReport& report) {
        KSETUP::RequireRoot();         // said before anything is wrong with the kit
        KSETUP::TakeValues(arguments); // before signals are held: somebody may type them
        KSYS::KStopSignals signals;
        try {
            const auto unpacked = Unpack(arguments, signals);
            const KSETUP::KSetupKit kit(unpacked ? unpacked->GetKitDirectory() : KitOf(arguments));
            KSETUP::UseValues(arguments, kit.GetValues());
            report.product = KSETUP::KSetupKit::GetProductName().c_str();
            const auto bundle = unpacked ? std::optional(unpacked->GetSigned()) : std::nullopt;
            run({kit, arguments, reporter, signals, report, bundle});
        } catch (const KSETUP::KSetupStop& stop) {
            const int signal = signals.GetFirst() != 0 ? signals.GetFirst() : SIGINT;
            Refuse(report, KSETUP::ExitCode::signalBase + signal, stop.GetText());
        }
        if (arguments.detailedExitCode && report.exitCode == KSETUP::ExitCode::done &&
            report.changed) {
            report.exitCode = KSETUP::ExitCode::changed;
        }
    });
}

int Run(KSetupArguments& arguments) {
    switch (arguments.command) {
    case Command::Install:
        return RunOnMachine(arguments, "install", &KSETUP::Install);
    case Command::Remove:
        return RunOnMachine(arguments, "remove", &KSETUP::Remove);
    case Command::Restore:
        return RunOnMachine(arguments, "restore", &KSETUP::Restore);
    case Command::Status:
        return Tell(arguments, "status", [&](KSETUP::KReporter&, KRunReport& report) {
            const KSETUP::KSetupKit kit(KitOf(arguments)); // for the product that is asked about
            KSETUP::FillStatus(arguments, report);
        });
    case Command::List:
        return Tell(arguments, "list", [](KSETUP::KReporter&, KRunReport& report) {
            KSETUP::FillList(report);
        });
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
    case Command::KitKeyNew:
        return KSETUP::RunKit(arguments);
    case Command::Verify:
        return Tell(arguments, "verify", [&](KSETUP::KReporter&, KRunReport& report) {
            KSETUP::Verify(arguments, report);
        });
    }
    return KSETUP::ExitCode::internal;
}

/// Whether the command works on the machine; the others work on files of who calls.
bool WorksOnMachine(Command command) {
    return command == Command::Install || command == Command::Remove ||
           command == Command::Status || command == Command::Restore || command == Command::List;
}

/// Whether the answer is all that the command is for.
bool IsQuestion(Command command) {
    return command == Command::Status || command == Command::List || command == Command::Check ||
           command == Command::PlanInstall || command == Command::PlanRemove ||
           command == Command::Macros || command == Command::Verify;
}

/// Half an answer looks whole to a program. (A run's result stands, whoever heard of it.)
int TellLostAnswer(Command command, int exitCode) {
    if (!IsQuestion(command) || std::cout.flush() || KSYS::IsReaderGone(STDOUT_FILENO)) {
        return exitCode;
    }
    std::cerr << KSETUP::Text(
                     "ins-setup: the answer could not be written. Make room where standard output "
                     "leads to, or lead it elsewhere."
                 )
              << std::endl;
    return KSETUP::ExitCode::cannotWrite;
}

/// A word behind "install" that names a file is a bundle: no product is installed into a file.
void TellBundleFromPath(KSetupArguments& arguments, const std::string& directory) {
    const std::string word = std::exchange(arguments.bundleOrPath, "");
    const std::string path = KSETUP::FromDirectory(directory, word);
    std::error_code unknown; // then it is no file
    if (!word.empty() && std::filesystem::is_regular_file(path, unknown)) {
        if (!arguments.kit.empty()) {
            throw KSETUP::KSetupFailure(
                KSETUP::ExitCode::usage,
                KSETUP::Text("%s: a bundle is a kit already. Leave --kit out.", word)
            );
        }
        arguments.bundle = path;
        return;
    }
    if (!arguments.productPath.empty()) {
        throw KSETUP::KSetupFailure(
            KSETUP::ExitCode::usage,
            KSETUP::Text(
                "%s: no file. Of two words the first one is a bundle, the second one where to "
                "install.",
                word
            )
        );
    }
    arguments.productPath = word;
}

/// Without a reporter, which takes arguments that are understood.
int RefuseEarly(int argc, char** argv, int exitCode, const KSETUP::KText& why) {
    std::cerr << "ins-setup: " << why << std::endl;
    KSETUP::TellEarlyRefusal(argc, argv, exitCode, why);
    return exitCode;
}

/// Where nothing can be caught: parts of the standard library end the program when there is no memory
/// left. Nothing is allocated here.
[[noreturn]] void EndUncaught() noexcept {
    static_cast<void>(std::fputs(
        "ins-setup: ended by an internal error, or because no memory was left. What was begun "
        "is remembered: make sure of enough memory, and run it again.\n",
        stderr
    ));
    std::_Exit(KSETUP::ExitCode::internal);
}

} // namespace

int main(int argc, char** argv) {
    std::set_terminate(&EndUncaught);
    KSYS::ReturnLargeBlocks();
    const KSETUP::KPrintableOutput output(std::cout, STDOUT_FILENO);
    const KSETUP::KPrintableOutput errors(std::cerr, STDERR_FILENO);
    int exitCode = KSETUP::ExitCode::done;
    try {
        const std::string directory = KSETUP::PrepareProcess();
        auto arguments = KSETUP::ReadArguments(argc, argv, exitCode);
        if (!arguments) {
            return exitCode;
        }
        KSETUP::HideSecrets(arguments->words, argv);
        if (WorksOnMachine(arguments->command)) {
            arguments->kit = KSETUP::FromDirectory(directory, arguments->kit);
            if (arguments->values != KSETUP::standardInput) {
                arguments->values = KSETUP::FromDirectory(directory, arguments->values);
            }
            TellBundleFromPath(*arguments, directory);
        } else if (!directory.empty() && KSYS::EnterDirectory(directory.c_str()) != 0) {
            throw KSETUP::KSetupFailure(
                KSETUP::ExitCode::noKit,
                KSETUP::Text("%s: this directory cannot be entered again.", directory)
            );
        }
        if (!arguments->root.empty()) {
            arguments->root = KSETUP::FromDirectory(directory, arguments->root);
            if (const std::optional<int> ended = KSETUP::GoIntoImageRoot(*arguments)) {
                return *ended; // of the process that went there, which has told it
            }
        }
        return TellLostAnswer(arguments->command, Run(*arguments));
    } catch (const KSETUP::KSetupFailure& failure) {
        return RefuseEarly(argc, argv, failure.GetExitCode(), failure.GetText());
    } catch (const KSUP::KError& error) {
        return RefuseEarly(argc, argv, KSETUP::ExitCode::internal, error.GetSummary().c_str());
    } catch (const std::exception& error) {
        return RefuseEarly(argc, argv, KSETUP::ExitCode::internal, error.what());
    }
}
