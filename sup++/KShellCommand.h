// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KAnnotatedMutex.h>
#include <sup++/KThread.h>
#include <sup++/ThreadSafety.h>

#include <boost/shared_ptr.hpp>

#include <mutex>

namespace KSUP {

/// Runs one command line through the system's shell and waits for it on a thread of its own.
///
/// The command is a stranger to this program: a session and a process group of its own without a
/// terminal, no descriptor, signal setting or environment of the caller's (PATH, HOME and LANG are
/// root's own), directory "/", umask 022, nothing to read, and its output goes where
/// SvcSetCommandOutput says. It has ended when the shell has ended, also if it left a daemon
/// behind. Its exit status is for who asks: no status is an error here.
///
/// Thread   Execute and the destructor belong to the owner; everything else as KThread
///
///     KShellCommand command;
///     command.Execute("systemd-tmpfiles --create");
///     while (command.IsThreadActive()) { SvcPollingDispatch(); }
class SUP_EXPORT KShellCommand : public KThread {
  public:
    KShellCommand();
    /// Stops the command if it still runs.
    ~KShellCommand() override;

    /// Starts the command and returns; IsThreadActive is true from here on. A command that was
    /// asked to stop before is not started.
    ///
    /// Throws   KError with errno when there is no shell, process or thread to be had, or the file
    ///          for the output (its path is the information) cannot be opened; KError 36 when a
    ///          command is running. Nothing more runs then
    void Execute(const KString& commandLine);

    /// How the command that was executed last ended: the shell's exit status, 128 and the signal for
    /// one that a signal ended. -1 before its end, without a command, and where the program itself
    /// has taken the status of its children.
    ///
    /// Thread   any
    int GetExitStatus() const;

    using KThread::Stop;
    /// Ends the command with its whole process group: SIGTERM, SIGKILL after 2 s for what is left.
    void Stop(bool wait) override;

  private:
    class Child;
    /// Recursive: what is raised under it is told to the program's trace hook, which may call Stop.
    mutable KAnnotatedMutex<std::recursive_mutex> guard;
    boost::shared_ptr<Child> child SUP_GUARDED_BY(guard); // the running thread holds it too
};

} // namespace KSUP
