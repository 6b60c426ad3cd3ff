// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/TextFormat.h>
#include <setup/run/KAuditLog.h>
#include <setup/script/SecretNames.h>
#include <sup++/KError.h>
#include <sup++/KLogPrefix.h>

#include <sys/processes/OwnProcess.h>
#include <sys/utsname.h>
#include <syslog.h>
#include <systemd/sd-journal.h>

namespace KSETUP {

namespace {

using KSUP::KLogPrefix;
using KSUP::KLogTypes;

KSUP::KString Name() {
    return "ins-setup:";
}

std::string Machine() {
    utsname names{};
    return ::uname(&names) == 0 ? std::string(names.nodename) + ", " + names.sysname + " " +
                                      names.release + " " + names.machine
                                : "unknown";
}

std::string What(const KRunReport& report) {
    return report.command + " of " + report.product + " " + report.version + " (build " +
           std::to_string(report.buildNumber) + ")";
}

/// The journal shows a text with control characters as a count of bytes only.
std::string ForJournal(const std::string& text) {
    return Printable(text, KLineEnds::Kept);
}

/// As the caller wrote them, each between quotes.
std::string Arguments() {
    std::string text;
    for (const std::string& word : MaskedArguments(KSYS::ProgramArguments())) {
        text += text.empty() ? "\"" : " \"";
        for (const char letter : word) {
            text += letter == '"' || letter == '\\' ? "\\" : "";
            text += letter;
        }
        text += '"';
    }
    return text;
}

/// As "known key 0123456789ABCDEF (/etc/ins++/trusted.d/us.pub)"; empty where there is none.
std::string SignatureWords(const KRunReport& report) {
    if (!report.signer) {
        return "";
    }
    const KSignerReport& signer = *report.signer;
    return signer.state + (signer.key.empty() ? "" : " " + signer.key) +
           (signer.knownFrom.empty() ? "" : " (" + signer.knownFrom + ")") +
           (signer.why.empty() ? "" : ": " + signer.why.English());
}

void TellJournal(const KRunReport& report, const std::string& message, const char* result) {
    const int priority = report.result == KRunResult::Failed ? LOG_ERR : LOG_INFO;
    // Ignored: a system without a journal has the setup log.
    static_cast<void>(::sd_journal_send(
        "MESSAGE=%s",
        ForJournal(message).c_str(),
        "PRIORITY=%i",
        priority,
        "SYSLOG_IDENTIFIER=ins-setup",
        "INSPP_COMMAND=%s",
        report.command.c_str(),
        "INSPP_PRODUCT=%s",
        ForJournal(report.product).c_str(),
        "INSPP_VERSION=%s",
        ForJournal(report.version).c_str(),
        "INSPP_PRODUCT_PATH=%s",
        ForJournal(report.productPath).c_str(),
        "INSPP_RESULT=%s",
        result,
        "INSPP_ERROR=%s",
        ForJournal(report.error.English()).c_str(),
        "INSPP_SIGNATURE=%s",
        ForJournal(SignatureWords(report)).c_str(),
        nullptr
    ));
}

} // namespace

void KAuditLog::Begin(const KRunReport& report, const std::string& kit) {
    try {
        // Before the engine, which opens it for itself: the run begins with this.
        KSUP::KLog log;
        log.Open(report.log);
        log << KLogPrefix(Name()) << "Begin " << What(report) << " in " << report.productPath
            << (report.formerVersion.empty() ? "" : ", over ") << report.formerVersion
            << ", from kit " << kit << KLogTypes::EndEntry;
        log << KLogPrefix(Name()) << "Arguments: " << Arguments() << KLogTypes::EndEntry;
        if (report.signer) {
            log << KLogPrefix(Name()) << "Signature: " << SignatureWords(report)
                << (report.signer->state == "not verified" ? ", allowed" : "")
                << KLogTypes::EndEntry;
        }
        log << KLogPrefix(Name()) << "ins-setup " INSPP_VERSION " on " << Machine()
            << KLogTypes::EndEntry;
    } catch (const KSUP::KError& error) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            Text(
                "the setup log cannot be opened: %s",
                (error.HasInfo() ? error.GetInfo().GetString() : error.GetSummary()).c_str()
            )
        );
    }
    TellJournal(report, "Begin " + What(report), "started");
}

void KAuditLog::RolledBack(const KRunReport& report, KSUP::KLog& log) {
    const KPutBackReport restored = report.restored.value_or(KPutBackReport());
    log << KLogPrefix(Name()) << "Rolled back: " << restored.putBack << " put back, "
        << restored.deleted << " deleted, "
        << (report.rolledBack.value_or(false) ? "all done" : "not all of it could be done")
        << KLogTypes::EndEntry;
}

void KAuditLog::End(const KRunReport& report, KSUP::KLog& log) {
    const std::string result = ResultWord(report.result);
    log << KLogPrefix(Name()) << "End " << What(report) << ": " << result << ", "
        << report.rulesDone << " of " << report.rulesAll << " rules"
        << (report.error.empty() ? "" : ": ") << report.error.English() << KLogTypes::EndEntry;
    TellJournal(
        report,
        "End " + What(report) + ": " + result + (report.error.empty() ? "" : ": ") +
            report.error.English(),
        result.c_str()
    );
}

} // namespace KSETUP
