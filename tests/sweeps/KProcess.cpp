// SPDX-License-Identifier: MIT
#include "KProcess.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KSWEEP {

namespace {

double Now() {
    using Seconds = std::chrono::duration<double>;
    return Seconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string ReadAll(int file) {
    std::string text;
    std::array<char, 4096> bytes{};
    off_t at = 0;
    for (ssize_t step = 0; (step = ::pread(file, bytes.data(), bytes.size(), at)) > 0; at += step) {
        text.append(bytes.data(), static_cast<std::size_t>(step));
    }
    return text;
}

} // namespace

std::string KProcessEnd::ToText() const {
    if (signal != 0) {
        return signal == SIGALRM ? "it hangs" : "signal " + std::to_string(signal) + ": " + err;
    }
    return "exit " + std::to_string(exitCode) + ": " + err;
}

KProcess::KProcess(
    const std::vector<std::string>& words,
    const std::function<void()>& prepare,
    unsigned longestSeconds
)
    : id(-1),
      out(::memfd_create("out", MFD_CLOEXEC)),
      err(::memfd_create("err", MFD_CLOEXEC)),
      begin(Now()) {
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str())
        ); // NOLINT(*-const-cast): as execv has it
    }
    arguments.push_back(nullptr);
    id = ::fork();
    if (id < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (id == 0) {
        ::dup2(::open("/dev/null", O_RDONLY), 0); // NOLINT(*-cloexec-*): inherited
        ::dup2(out, 1);
        ::dup2(err, 2);
        ::alarm(longestSeconds);
        if (prepare) {
            prepare();
        }
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
}

KProcess::KProcess(KProcess&& other) noexcept
    : id(std::exchange(other.id, -1)),
      out(std::exchange(other.out, -1)),
      err(std::exchange(other.err, -1)),
      begin(other.begin),
      isEnded(other.isEnded),
      end(std::move(other.end)) {}

KProcess::~KProcess() {
    if (id > 0 && !isEnded) {
        ::kill(id, SIGKILL);
        ::waitpid(id, nullptr, 0);
    }
    if (out >= 0) {
        ::close(out);
        ::close(err);
    }
}

void KProcess::NoteEnd(int status) {
    isEnded = true;
    if (WIFEXITED(status)) {
        end.exitCode = WEXITSTATUS(status);
    } else {
        end.signal = WTERMSIG(status);
    }
    end.seconds = Now() - begin;
    end.out = ReadAll(out);
    end.err = ReadAll(err);
}

bool KProcess::GoesOn(unsigned microseconds) {
    int status = 0;
    rusage usage{};
    if (isEnded || ::wait4(id, &status, WNOHANG, &usage) == id) {
        if (!isEnded) {
            end.memory = usage.ru_maxrss;
            NoteEnd(status);
        }
        return false;
    }
    ::usleep(microseconds);
    return true;
}

KProcessEnd KProcess::Wait() {
    if (!isEnded) {
        int status = 0;
        rusage usage{};
        ::wait4(id, &status, 0, &usage);
        end.memory = usage.ru_maxrss;
        NoteEnd(status);
    }
    return end;
}

} // namespace KSWEEP
