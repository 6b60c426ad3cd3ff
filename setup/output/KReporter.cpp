// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/KReporter.h>
#include <setup/output/ProductTable.h>
#include <setup/output/TextFormat.h>

#include <iostream>
#include <string_view>

#include <sys/files/FileContent.h>

namespace KSETUP {

namespace {

std::string VersionText(const KRunReport& report) {
    return Printable(report.product) + " " + Printable(report.version) + " (build " +
           std::to_string(report.buildNumber) + ")";
}

std::string_view Gerund(const KRunReport& report) {
    return report.command == "remove" ? "Removing" : "Installing";
}

void PrintLogEnd(const KRunReport& report) {
    if (report.logEnd.empty()) {
        return;
    }
    std::cerr << "Log: " << Printable(report.log) << ", which ends with\n";
    for (const std::string& line : report.logEnd) {
        std::cerr << "    " << Printable(line) << "\n";
    }
}

void PrintCommandOutput(std::ostream& out, const KRunReport& report) {
    if (!report.commandOutput.empty()) {
        out << "What commands wrote: " << Printable(report.commandOutput) << "\n";
    }
}

void PrintLeftBehind(std::ostream& out, const KRunReport& report) {
    if (!report.leftBehind.empty()) {
        out << "Still there:\n";
        for (const std::string& path : report.leftBehind) {
            out << "    " << Printable(path) << "\n";
        }
    }
}

/// A refusal for it says it itself.
void PrintRecordDamage(std::ostream& out, const KRunReport& report) {
    if (!report.recordDamage.empty()) {
        out << Printable(report.recordDamage) << "\n";
    }
}

void PrintNotes(std::ostream& out, const KRunReport& report) {
    PrintCommandOutput(out, report);
    PrintRecordDamage(out, report);
    for (const std::string& note : report.notes) {
        out << Printable(note) << "\n";
    }
}

void PrintPaths(const char* heading, const std::vector<std::string>& paths) {
    if (paths.empty()) {
        return;
    }
    std::cout << heading << "\n";
    for (const std::string& path : paths) {
        std::cout << "    " << Printable(path) << "\n";
    }
}

/// Only where the signature is right; all else is an error.
void PrintSigner(const KRunReport& report) {
    const KSignerReport signer = report.signer.value_or(KSignerReport());
    std::cout << VersionText(report) << " is signed by key " << Printable(signer.key) << " ("
              << Printable(signer.knownFrom) << ").\n";
}

void PrintKeys(const KRunReport& report) {
    for (const KKeyReport& one : report.keys) {
        std::cout << (&one == &report.keys.front() ? "Its kits have to be signed by key " : "  or ")
                  << Printable(one.key) << " (" << Printable(one.knownFrom) << ")"
                  << (&one == &report.keys.back() ? ".\n" : "\n");
    }
}

} // namespace

KReporter::KReporter(const KSetupArguments& arguments)
    : text(!arguments.json && !arguments.quiet),
      json(arguments.json) {
    const bool elsewhere = arguments.progressDescriptor != STDOUT_FILENO;
    if (!arguments.jsonEvents && !elsewhere) {
        return;
    }
    if (!KSYS::IsOpenDescriptor(arguments.progressDescriptor)) {
        throw KSetupFailure(
            ExitCode::usage,
            "--progress-fd " + std::to_string(arguments.progressDescriptor) +
                ": no open descriptor. Open it for the program, as in: 3>events ins-setup … "
                "--progress-fd 3"
        );
    }
    events.emplace(arguments.progressDescriptor);
    text = text && elsewhere;
}

void KReporter::Start(const KRunReport& report) {
    all = report.rulesAll;
    if (events) {
        events->Start(report.command, report.product, all);
    }
}

void KReporter::RuleStarted(unsigned number, const std::string& place, const std::string& words) {
    if (events) {
        events->RuleStarted(number, place, words);
    }
    if (text) {
        progress.WriteLine(number, all, words);
    }
}

void KReporter::RuleDone(unsigned number) {
    if (events) {
        events->RuleDone(number);
    }
}

void KReporter::Status(unsigned done, const KSUP::KString& status, double part, bool now) {
    if (events) {
        events->Status(done, status.c_str(), part);
    }
    if (text && !status.IsEmpty()) { // nothing is at work yet
        progress.Draw(done, all, status, now);
    }
}

void KReporter::Say(const std::string& words) {
    if (text) {
        progress.Finish();
        std::cout << words << std::endl; // a reader waits for it
    }
}

void KReporter::Warn(const std::string& words) {
    progress.Finish();
    std::cout << std::flush; // in the order in which things happened
    std::cerr << words << std::endl;
}

void KReporter::Finish(const KRunReport& report) {
    progress.Finish();
    if (report.error.empty()) {
        if (text) {
            PrintDone(report);
        }
    } else {
        std::cout << std::flush;
        PrintTrouble(report);
    }
    if (events) {
        events->Result(report);
    }
    if (json) {
        std::cout << ToJson(report) << "\n";
    }
    std::cout << std::flush;
}

void KReporter::PrintDone(const KRunReport& report) const {
    if (report.command == "list") {
        std::cout
            << (report.products.empty() ? "No product is known that ins-setup installed.\n"
                                        : ToTable(report.products));
    } else if (report.command == "restore") {
        std::cout << Printable(report.product)
                  << (report.restored && report.restored->isComplete
                          ? " is as it was before.\n"
                          : ": what the last run replaced is put back.\n");
    } else if (report.command == "verify") {
        PrintSigner(report);
    } else if (report.result == KRunResult::NotInstalled) {
        std::cout << Printable(report.product) << " is not installed.\n";
    } else if (report.command == "install" && !report.changed) {
        std::cout << VersionText(report) << " is installed in " << Printable(report.productPath)
                  << " already as this kit has it; nothing was done. --reinstall does it again.\n";
    } else if (report.command == "install" || report.command == "status") {
        std::cout << VersionText(report) << " is installed in " << Printable(report.productPath)
                  << ".\n";
    } else if (report.command == "remove" && report.wasPurged) {
        std::cout << Printable(report.product) << ": what an earlier removal left is deleted.\n";
    } else if (report.command == "remove" && report.rulesAll == 0) {
        std::cout << Printable(report.product)
                  << " is not installed: there is nothing to remove.\n";
    } else if (report.command == "remove") {
        std::cout << Printable(report.product) << " is removed from "
                  << Printable(report.productPath) << ".\n";
    }
    PrintKeys(report);
    for (const auto& [path, what] : report.differences) {
        std::cout << "    " << Printable(path) << " " << Printable(what) << "\n";
    }
    PrintLeftBehind(std::cout, report);
    PrintPaths("Not the product's, so it stays:", report.keptForeign);
    PrintPaths("Deleted, as this version does not have it any more:", report.obsolete);
    PrintConfiguration(report);
    for (const std::string& sentence : report.outdated) {
        std::cout << Printable(sentence) << "\n";
    }
    PrintRecordDamage(std::cout, report);
    for (const std::string& note : report.notes) {
        std::cout << Printable(note) << "\n";
    }
    if (report.rulesAll != 0) {
        std::cout << report.rulesDone << " rules done. Log: " << Printable(report.log) << "\n";
    }
    PrintCommandOutput(std::cout, report);
}

void KReporter::PrintConfiguration(const KRunReport& report) const {
    if (!report.keptConfiguration.empty()) {
        std::cout << "Edited configuration, which stays:\n";
    }
    for (const KRunReport::Kept& kept : report.keptConfiguration) {
        std::cout << "    " << Printable(kept.path)
                  << (kept.offered.empty() ? "" : "; the new one is " + Printable(kept.offered))
                  << "\n";
    }
    if (report.command == "remove" && !report.keptConfiguration.empty()) {
        std::cout << "\"ins-setup remove --purge\" deletes it.\n";
    }
    for (const auto& [name, state] : report.keptServices) {
        std::cout << "The service " << Printable(name) << " was " << state
                  << " before, and stays so. --start-services starts and enables it.\n";
    }
    for (const auto& [path, target] : report.replacedLinks) {
        std::cout << "A file took the place of the link " << Printable(path) << ", which led to "
                  << Printable(target) << ".\n";
    }
}

void KReporter::PrintTrouble(const KRunReport& report) {
    std::ostream& out = std::cerr;
    if (report.result == KRunResult::Refused) {
        out << "ins-setup: " << report.error << "\n"; // our own words, over several lines
        PrintLogEnd(report);
        PrintNotes(out, report);
        out.flush();
        return;
    }
    if (report.command == "restore") {
        out << Printable(report.product)
            << ": not everything was put back: " << Printable(report.error) << "\n";
        PrintNotes(out, report);
        out.flush();
        return;
    }
    if (report.result == KRunResult::Cancelled) {
        out << VersionText(report) << ": " << Gerund(report) << " was stopped on request after "
            << report.rulesDone << " of " << report.rulesAll << " rules.\n"
            << "Log: " << Printable(report.log) << "\n";
    } else {
        out << VersionText(report) << ": " << Gerund(report) << " failed after " << report.rulesDone
            << " of " << report.rulesAll << " rules.\n"
            << (report.errorCode != 0 ? "Error " + std::to_string(report.errorCode) + ": " : "")
            << Printable(report.error) << "\n";
        if (!report.rule.empty()) {
            out << "Rule: " << Printable(report.place) << ": " << Printable(report.rule) << "\n";
        }
        PrintLogEnd(report);
    }
    PrintNotes(out, report);
    PrintLeftBehind(out, report); // by a run that was rolled back
    out.flush();
}

} // namespace KSETUP
