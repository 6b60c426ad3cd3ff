// SPDX-License-Identifier: MIT
#include <setup/output/EarlyRefusal.h>
#include <setup/output/KEventStream.h>
#include <setup/output/KRunReport.h>

#include <iostream>
#include <string>

#include <sys/files/FileContent.h>
#include <unistd.h>

namespace KSETUP {

void TellEarlyRefusal(const KAnswerForm& form, int exitCode, const KText& why) {
    KRunReport report;
    report.command = form.command;
    report.result = KRunResult::Refused;
    report.exitCode = exitCode;
    report.error = why;
    if (form.events && form.descriptor > STDIN_FILENO && KSYS::IsOpenDescriptor(form.descriptor)) {
        KEventStream(form.descriptor).Result(report);
    }
    if (form.json) {
        std::cout << ToJson(report) << std::endl;
    }
}

void TellEarlyRefusal(int argc, const char* const* argv, int exitCode, const KText& why) {
    TellEarlyRefusal(ReadAnswerForm(argc, argv), exitCode, why);
}

} // namespace KSETUP
