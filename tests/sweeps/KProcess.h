// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace KSWEEP {

/// How a process ended, and what it said.
struct KProcessEnd {
    int exitCode = -1; ///< -1 when a signal ended it
    int signal = 0;    ///< SIGALRM when it took too long
    std::string out;
    std::string err;
    double seconds = 0;
    long memory = 0; ///< KiB at most, of it and what it ran

    /// "exit 73: text", "signal 11".
    std::string ToText() const;
};

/// A program that runs beside this one, with nothing on its standard input. It is killed when it is
/// forgotten.
class KProcess {
  public:
    /// `prepare` is called in the child before the program is.
    ///
    /// Throws   std::system_error
    explicit KProcess(
        const std::vector<std::string>& words,
        const std::function<void()>& prepare = {},
        unsigned longestSeconds = 30
    );
    ~KProcess();
    KProcess(KProcess&& other) noexcept;
    KProcess& operator=(KProcess&&) = delete;
    KProcess(const KProcess&) = delete;
    KProcess& operator=(const KProcess&) = delete;

    pid_t GetId() const noexcept { return id; }
    /// Whether it goes on; waits so many microseconds if it does.
    bool GoesOn(unsigned microseconds);
    KProcessEnd Wait();

  private:
    void NoteEnd(int status);

    pid_t id;
    int out;
    int err;
    double begin;
    bool isEnded = false;
    KProcessEnd end;
};

} // namespace KSWEEP
