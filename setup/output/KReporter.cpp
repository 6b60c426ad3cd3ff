// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/KReporter.h>
#include <setup/output/ProductTable.h>
#include <setup/output/RunSummary.h>
#include <setup/output/TextFormat.h>

#include <iostream>
#include <string_view>

#include <sys/files/FileContent.h>
#include <unistd.h>

namespace KSETUP {

namespace {

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

/// "exit status 1" alone helps nobody.
void PrintJournal(const KRunReport& report) {
    if (report.service.empty()) {
        return;
    }
    const std::string unit = Printable(report.service);
    if (!report.journal.empty()) {
        std::cerr << "The journal of " << unit << " ends with\n";
    }
    for (const std::string& line : report.journal) {
        std::cerr << "    " << Printable(line) << "\n";
    }
    std::cerr << "\"journalctl -u " << unit << "\" and \"systemctl status " << unit
              << "\" tell more.\n";
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
      json(arguments.json),
      colour(arguments.colour),
      progress(HasColour(colour, STDOUT_FILENO)) {
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
    if (events) {
        events->Start(report.command, report.product, report.rulesAll);
    }
}

void KReporter::RuleStarted(const KProgressView& view, const std::string& place) {
    if (events) {
        events->RuleStarted(view.rule, place, view.words);
    }
    if (text) {
        progress.BeginRule(view);
    }
}

void KReporter::RuleDone(unsigned number, unsigned percent) {
    if (events) {
        events->RuleDone(number, percent);
    }
}

void KReporter::Progress(const KProgressView& view, bool now) {
    if (events) {
        events->Status(view.status, view.percent);
    }
    if (text) {
        if (now) {
            last = view;
        }
        progress.Show(view, now);
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
    if (report.result == KRunResult::Done) {
        last.percent = 100; // the record is written
        progress.End(last);
    }
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

/// What became of it, in a sentence; empty where the rest says it.
std::string KReporter::Headline(const KRunReport& report) {
    const std::string product = Printable(report.product);
    if (report.command == "restore") {
        return product + (report.restored && report.restored->isComplete
                              ? " is as it was before."
                              : ": what the last run replaced is put back.");
    }
    if (report.result == KRunResult::NotInstalled) {
        return product + " is not installed.";
    }
    const std::string installed =
        VersionText(report) + " is installed in " + Printable(report.productPath);
    if (report.command == "status") {
        return installed + ".";
    }
    if (report.command == "install") {
        const bool isUpgrade =
            !report.formerVersion.empty() && report.formerVersion != report.version;
        return !report.changed
                   ? installed + " already as this kit has it; nothing was done. --reinstall does "
                                 "it again."
                   : installed +
                         (isUpgrade ? (report.wasNewer ? ", in place of " : ", upgraded from ") +
                                          Printable(report.formerVersion)
                                    : "") +
                         ".";
    }
    if (report.command == "remove") {
        return product + (report.wasPurged ? ": what an earlier removal left is deleted."
                          : report.rulesAll == 0
                              ? " is not installed: there is nothing to remove."
                              : " is removed from " + Printable(report.productPath) + ".");
    }
    return {};
}

void KReporter::PrintDone(const KRunReport& report) const {
    if (report.command == "list") {
        std::cout
            << (report.products.empty() ? "No product is known that ins-setup installed.\n"
                                        : ToTable(report.products));
    } else if (report.command == "verify") {
        PrintSigner(report);
    }
    if (const std::string headline = Headline(report); !headline.empty()) {
        const bool isDone = report.changed && HasColour(colour, STDOUT_FILENO);
        isDone ? WriteColoured(std::cout, STDOUT_FILENO, "1;32", headline)
               : static_cast<void>(std::cout << headline);
        std::cout << "\n";
    }
    if (report.rulesAll != 0) {
        std::cout << WorkLine(report) << "\n";
        const std::string changes = ChangesLine(report);
        std::cout << changes << (changes.empty() ? "" : "\n");
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
        std::cout << "Log: " << Printable(report.log) << "\n";
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

void KReporter::PrintTrouble(const KRunReport& report) const {
    std::ostream& out = std::cerr;
    const auto head = [&](const std::string& words) {
        HasColour(colour, STDERR_FILENO) ? WriteColoured(out, STDERR_FILENO, "1;31", words)
                                         : static_cast<void>(out << words);
    };
    if (report.result == KRunResult::Refused) {
        head("ins-setup:");
        out << " " << report.error << "\n"; // our own words, over several lines
        PrintLogEnd(report);
        PrintNotes(out, report);
        out.flush();
        return;
    }
    if (report.command == "restore") {
        head(Printable(report.product) + ": not everything was put back:");
        out << " " << Printable(report.error) << "\n";
        PrintNotes(out, report);
        out.flush();
        return;
    }
    const std::string run = VersionText(report) + ": " + std::string(Gerund(report));
    if (report.result == KRunResult::Cancelled) {
        head(run + " was stopped on request " + PlaceOfEnd(report) + ".");
        out << "\nLog: " << Printable(report.log) << "\n";
    } else {
        head(run + " failed " + PlaceOfEnd(report) + ".");
        out << "\n"
            << (report.errorCode != 0 ? "Error " + std::to_string(report.errorCode) + ": " : "")
            << Printable(report.error) << "\n";
        if (!report.rule.empty()) {
            out << "Rule: " << Printable(report.place) << ": " << Printable(report.rule) << "\n";
        }
        PrintJournal(report);
        PrintLogEnd(report);
    }
    PrintNotes(out, report);
    PrintLeftBehind(out, report); // by a run that was rolled back
    out.flush();
}

} // namespace KSETUP
