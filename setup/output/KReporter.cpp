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
#include <sys/processes/Terminal.h>
#include <unistd.h>

namespace KSETUP {

namespace {

/// Whether the run installs, for sentences that have a form for each.
bool Installs(const KRunReport& report) {
    return report.command != "remove";
}

void PrintLogEnd(const KRunReport& report) {
    if (report.logEnd.empty()) {
        return;
    }
    std::cerr << Text("Log: %s, which ends with", Printable(report.log)) << "\n";
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
        std::cerr << Text("The journal of %s ends with", unit) << "\n";
    }
    for (const std::string& line : report.journal) {
        std::cerr << "    " << Printable(line) << "\n";
    }
    std::cerr << Text("\"journalctl -u %s\" and \"systemctl status %s\" tell more.", unit, unit)
              << "\n";
}

/// Nor does an exit code of a command's.
void PrintCommandEnd(const KRunReport& report) {
    if (!report.commandEnd.empty()) {
        std::cerr << Text("What the command wrote ends with") << "\n";
    }
    for (const std::string& line : report.commandEnd) {
        std::cerr << "    " << Printable(line) << "\n";
    }
}

void PrintLog(std::ostream& out, const KRunReport& report) {
    out << Text("Log: %s", Printable(report.log)) << "\n";
}

void PrintCommandOutput(std::ostream& out, const KRunReport& report) {
    if (!report.commandOutput.empty()) {
        out << Text("What commands wrote: %s", Printable(report.commandOutput)) << "\n";
    }
}

void PrintPaths(std::ostream& out, const KText& heading, const std::vector<std::string>& paths) {
    if (paths.empty()) {
        return;
    }
    out << heading << "\n";
    for (const std::string& path : paths) {
        out << "    " << Printable(path) << "\n";
    }
}

void PrintLeftBehind(std::ostream& out, const KRunReport& report) {
    PrintPaths(out, Text("Still there:"), report.leftBehind);
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
    for (const KText& note : report.notes) {
        out << Printable(note) << "\n";
    }
}

/// Only where the signature is right; all else is an error.
void PrintSigner(const KRunReport& report) {
    const KSignerReport signer = report.signer.value_or(KSignerReport());
    std::cout << Text(
                     "%s is signed by key %s (%s).",
                     VersionText(report),
                     Printable(signer.key),
                     Printable(signer.knownFrom)
                 )
              << "\n";
}

void PrintKeys(const KRunReport& report) {
    KText text;
    for (const KKeyReport& one : report.keys) {
        text += Text(
            text.empty() ? TextFormat("Its kits have to be signed by key %s (%s)")
                         : TextFormat("\n  or %s (%s)"),
            Printable(one.key),
            Printable(one.knownFrom)
        );
    }
    std::cout << text << (text.empty() ? "" : ".\n");
}

KText RestoreHeadline(const KRunReport& report) {
    const std::string product = Printable(report.product);
    return report.restored && report.restored->isComplete
               ? Text("%s is as it was before.", product)
               : Text("%s: what the last run replaced is put back.", product);
}

KText InstallHeadline(const KRunReport& report) {
    const KText version = VersionText(report);
    const std::string path = Printable(report.productPath);
    if (!report.changed) {
        return Text(
            "%s is installed in %s already as this kit has it; nothing was done. --reinstall does "
            "it again.",
            version,
            path
        );
    }
    const std::string former = Printable(report.formerVersion);
    if (former.empty() || report.formerVersion == report.version) {
        return Text("%s is installed in %s.", version, path);
    }
    return report.wasNewer
               ? Text("%s is installed in %s, in place of %s.", version, path, former)
               : Text("%s is installed in %s, upgraded from %s.", version, path, former);
}

KText RemoveHeadline(const KRunReport& report) {
    const std::string product = Printable(report.product);
    return report.wasPurged ? Text("%s: what an earlier removal left is deleted.", product)
           : report.rulesAll == 0
               ? Text("%s is not installed: there is nothing to remove.", product)
               : Text("%s is removed from %s.", product, Printable(report.productPath));
}

/// What became of it, in a sentence; empty where the rest says it.
KText Headline(const KRunReport& report) {
    if (report.command == "restore") {
        return RestoreHeadline(report);
    }
    if (report.result == KRunResult::NotInstalled) {
        return Text("%s is not installed.", Printable(report.product));
    }
    if (report.command == "status") {
        return Text("%s is installed in %s.", VersionText(report), Printable(report.productPath));
    }
    return report.command == "install"  ? InstallHeadline(report)
           : report.command == "remove" ? RemoveHeadline(report)
                                        : KText();
}

/// How a run that failed or was stopped ended.
KText TroubleHeadline(const KRunReport& report) {
    const bool isCancelled = report.result == KRunResult::Cancelled;
    const KText version = VersionText(report);
    const KText place = PlaceOfEnd(report);
    if (Installs(report)) {
        return isCancelled ? Text("%s: Installing was stopped on request %s.", version, place)
                           : Text("%s: Installing failed %s.", version, place);
    }
    return isCancelled ? Text("%s: Removing was stopped on request %s.", version, place)
                       : Text("%s: Removing failed %s.", version, place);
}

KText StateInWords(const std::string& state) {
    return state == "stopped"    ? Text("stopped")
           : state == "disabled" ? Text("disabled")
           : state == "masked"   ? Text("masked")
                                 : KText(state);
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
            Text(
                "--progress-fd %s: no open descriptor. Open it for the program, as in: 3>events "
                "ins-setup … --progress-fd 3",
                arguments.progressDescriptor
            )
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

void KReporter::Say(const KText& words) {
    if (text) {
        progress.Finish();
        std::cout << words << std::endl; // a reader waits for it
    }
}

void KReporter::Warn(const KText& words) {
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

void KReporter::PrintDone(const KRunReport& report) const {
    if (report.command == "list") {
        if (report.products.empty()) {
            std::cout << Text("No product is known that ins-setup installed.") << "\n";
        } else {
            std::cout << ToTable(report.products, KSYS::TerminalColumns(STDOUT_FILENO));
        }
    } else if (report.command == "verify") {
        PrintSigner(report);
    }
    if (const KText headline = Headline(report); !headline.empty()) {
        const bool isDone = report.changed && HasColour(colour, STDOUT_FILENO);
        isDone ? WriteColoured(std::cout, STDOUT_FILENO, "1;32", headline.Translated())
               : static_cast<void>(std::cout << headline);
        std::cout << "\n";
    }
    if (report.rulesAll != 0) {
        std::cout << WorkLine(report) << "\n";
        const KText changes = ChangesLine(report);
        std::cout << changes << (changes.empty() ? "" : "\n");
    }
    PrintKeys(report);
    for (const auto& [path, what] : report.differences) {
        std::cout << "    " << Printable(path) << " " << Printable(what) << "\n";
    }
    PrintLeftBehind(std::cout, report);
    PrintPaths(std::cout, Text("Not the product's, so it stays:"), report.keptForeign);
    PrintPaths(
        std::cout, Text("Deleted, as this version does not have it any more:"), report.obsolete
    );
    PrintConfiguration(report);
    for (const KText& sentence : report.outdated) {
        std::cout << Printable(sentence) << "\n";
    }
    PrintRecordDamage(std::cout, report);
    for (const KText& note : report.notes) {
        std::cout << Printable(note) << "\n";
    }
    if (report.rulesAll != 0) {
        PrintLog(std::cout, report);
    }
    PrintCommandOutput(std::cout, report);
}

void KReporter::PrintConfiguration(const KRunReport& report) const {
    if (!report.keptConfiguration.empty()) {
        std::cout << Text("Edited configuration, which stays:") << "\n";
    }
    for (const KRunReport::Kept& kept : report.keptConfiguration) {
        const std::string path = Printable(kept.path);
        std::cout << "    "
                  << (kept.offered.empty()
                          ? KText(path)
                          : Text("%s; the new one is %s", path, Printable(kept.offered)))
                  << "\n";
    }
    if (report.command == "remove" && !report.keptConfiguration.empty()) {
        std::cout << Text("\"ins-setup remove --purge\" deletes it.") << "\n";
    }
    for (const auto& [name, state] : report.keptServices) {
        std::cout << Text(
                         "The service %s was %s before, and stays so. --start-services starts and "
                         "enables it.",
                         Printable(name),
                         StateInWords(state)
                     )
                  << "\n";
    }
    for (const auto& [path, target] : report.replacedLinks) {
        std::cout << Text(
                         "A file took the place of the link %s, which led to %s.",
                         Printable(path),
                         Printable(target)
                     )
                  << "\n";
    }
}

void KReporter::PrintTrouble(const KRunReport& report) const {
    std::ostream& out = std::cerr;
    const auto head = [&](const KText& words) {
        HasColour(colour, STDERR_FILENO)
            ? WriteColoured(out, STDERR_FILENO, "1;31", words.Translated())
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
        head(Text("%s: not everything was put back:", Printable(report.product)));
        out << " " << Printable(report.error) << "\n";
        PrintNotes(out, report);
        out.flush();
        return;
    }
    head(TroubleHeadline(report));
    out << "\n";
    if (report.result == KRunResult::Cancelled) {
        PrintLog(out, report);
    } else {
        if (report.errorCode != 0) {
            out << Text("Error %s: ", report.errorCode);
        }
        out << Printable(report.error) << "\n";
        if (!report.rule.empty()) {
            out << Text("Rule: %s: %s", Printable(report.place), Printable(report.rule)) << "\n";
            PrintCommandEnd(report);
        }
        PrintJournal(report);
        PrintLogEnd(report);
    }
    PrintNotes(out, report);
    PrintLeftBehind(out, report); // by a run that was rolled back
    out.flush();
}

} // namespace KSETUP
