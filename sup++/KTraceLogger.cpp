// SPDX-License-Identifier: MIT
#include <sup++/KErrorSource.h>
#include <sup++/KTraceLogger.h>
#include <sup++/SvcTrace.h>

#include <algorithm>
#include <string>

#include <sys/KAnnotatedMutex.h>
#include <sys/files/FileCalls.h>
#include <sys/files/KDescriptor.h>
#include <syslog.h>
#include <unistd.h>

namespace KSUP {

namespace {

constexpr KErrorSource source{"sup++/KTraceLogger"};

int PriorityOf(TRACE_MESSAGE level) noexcept {
    switch (level) {
    case TraceLevel::setup:
        return LOG_ERR;
    case TraceLevel::rule:
        return LOG_WARNING;
    default:
        return LOG_NOTICE;
    }
}

/// One line and one system call, so that messages of several processes do not mix and none can
/// pretend to be two.
void WriteLine(int descriptor, TRACE_MESSAGE level, const char* text) noexcept {
    try {
        std::string line(SvcMapTraceMask(level));
        line.append(" ").append(text);
        std::replace_if(
            line.begin(), line.end(), [](char byte) { return byte >= 0 && byte < ' '; }, ' '
        );
        line += '\n';
        static_cast<void>(KSYS::WriteAll(descriptor, line.data(), line.size()));
    } catch (...) { // there is nobody left to be told
    }
}

} // namespace

KTraceLogger::~KTraceLogger() {
    Switch(Target::Nothing, -1);
}

void KTraceLogger::UseSystemLog() noexcept {
    Switch(Target::SystemLog, -1);
}

void KTraceLogger::UseStandardError() noexcept {
    Switch(Target::StandardError, -1);
}

void KTraceLogger::UseNothing() noexcept {
    Switch(Target::Nothing, -1);
}

void KTraceLogger::UseFile(const KString& path) {
    KSYS::KDescriptor file;
    if (const unsigned status = KSYS::OpenForAppend(path.c_str(), 0640, file); status != 0) {
        source.RaiseSystem(status, KOperation::Write, path);
    }
    Switch(Target::File, file.Release());
}

void KTraceLogger::Write(TRACE_MESSAGE level, const char* text) noexcept {
    const KSYS::KScopedLock hold(guard);
    switch (target) {
    case Target::SystemLog:
        syslog(LOG_USER | PriorityOf(level), "%s", text);
        break;
    case Target::StandardError:
        WriteLine(STDERR_FILENO, level, text);
        break;
    case Target::File:
        WriteLine(descriptor, level, text);
        break;
    case Target::Nothing:
        break;
    }
}

void KTraceLogger::Switch(Target to, int file) noexcept {
    const KSYS::KScopedLock hold(guard);
    if (descriptor >= 0) {
        ::close(descriptor);
    }
    target = to;
    descriptor = file;
}

} // namespace KSUP
