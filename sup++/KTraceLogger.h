// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KAnnotatedMutex.h>
#include <sup++/KString.h>
#include <sup++/Msg.h>
#include <sup++/ThreadSafety.h>

#include <mutex>

namespace KSUP {

/// Carries the trace messages of the process to one place. The program owns the choice; the
/// libraries only write. There is one (SvcGetGlobalLogger), which begins with the system log.
///
/// Thread   any; locks itself, and holds the lock while it writes, so that messages do not mix
///
///     SvcGetGlobalLogger()->UseStandardError();
class SUP_EXPORT KTraceLogger {
  public:
    KTraceLogger() noexcept = default;
    ~KTraceLogger();
    KTraceLogger(const KTraceLogger&) = delete;
    KTraceLogger& operator=(const KTraceLogger&) = delete;

    /// syslog(3), which the journal picks up where there is one. The program's openlog stays as it
    /// is.
    void UseSystemLog() noexcept;
    /// One line a message on standard error.
    void UseStandardError() noexcept;
    /// Messages are dropped.
    void UseNothing() noexcept;
    /// One line a message at the end of a file, made with mode 0640 where it is missing.
    ///
    /// Throws   KError with errno and the path; messages then go where they went before
    void UseFile(const KString& path);

    /// Writes one message to where messages go. Msg is the usual way.
    void Write(TRACE_MESSAGE level, const char* text) noexcept;

  private:
    enum class Target { SystemLog, StandardError, Nothing, File };
    void Switch(Target to, int file) noexcept;

    KAnnotatedMutex<std::mutex> guard;
    Target target SUP_GUARDED_BY(guard) = Target::SystemLog;
    int descriptor SUP_GUARDED_BY(guard) = -1; // owned while the target is a file
};

} // namespace KSUP
