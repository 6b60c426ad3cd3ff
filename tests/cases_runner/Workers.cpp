// SPDX-License-Identifier: MIT
#include "Workers.h"

#include "Calls.h"
#include "SetupWorld.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <map>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KTEST {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto longestCase = std::chrono::minutes(2);
constexpr char passedMark = 'P';
constexpr char failedMark = 'F';

void WriteAll(int end, const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t step = ::write(end, bytes.data() + sent, bytes.size() - sent);
        if (step <= 0) {
            ::_exit(1);
        }
        sent += static_cast<std::size_t>(step);
    }
}

/// The verdict as bytes: a mark, the text, a NUL, the accepted case.
[[noreturn]] void Answer(const Work& work, int end) {
    Verdict verdict;
    try {
        verdict = work.attempt();
    } catch (const std::exception& error) {
        verdict = {false, 0, std::string("  ") + error.what() + '\n', ""};
    }
    WriteAll(end, (verdict.passed ? passedMark : failedMark) + verdict.text);
    WriteAll(end, '\0' + verdict.accepted);
    ::_exit(0);
}

/// A case that is being tried.
class Worker {
  public:
    explicit Worker(const Work& work) {
        int ends[2];
        Check(::pipe2(ends, O_CLOEXEC), "pipe");
        // A process between: what unshares its processes can do so once only.
        child = ::fork();
        Check(child, "fork");
        if (child == 0) {
            ::close(ends[0]);
            Begin(work, ends[1]);
        }
        ::close(ends[1]);
        end = ends[0];
    }

    int End() const { return end; }
    bool IsLate() const { return Clock::now() - began > longestCase; }
    void Kill() const { ::kill(-child, SIGKILL); }
    /// Takes what has come; false once there is no more.
    bool Receive() {
        char buffer[4096];
        const ssize_t step = ::read(end, buffer, sizeof(buffer));
        if (step > 0) {
            bytes.append(buffer, static_cast<std::size_t>(step));
        }
        return step > 0;
    }
    Verdict Finish() {
        ::close(end);
        int status = 0;
        Check(::waitpid(child, &status, 0), "waitpid");
        const std::size_t gap = bytes.find('\0');
        if (gap == std::string::npos) {
            return {false, Seconds(), "  the case did not come to its end\n" + bytes, ""};
        }
        return {
            bytes.front() == passedMark,
            Seconds(),
            bytes.substr(1, gap - 1),
            bytes.substr(gap + 1)};
    }

  private:
    unsigned Seconds() const {
        using std::chrono::duration_cast;
        return static_cast<unsigned>(
            duration_cast<std::chrono::seconds>(Clock::now() - began).count()
        );
    }
    [[noreturn]] static void Begin(const Work& work, int end) {
        ::setpgid(0, 0); // the first of a world dies with its group, and all of it with that one
        if (!work.needsWorld) {
            Answer(work, end);
        }
        try {
            const int first = ForkIntoWorld();
            if (first == 0) {
                Answer(work, end);
            }
            ::close(end);
            int status = 0;
            ::waitpid(first, &status, 0);
        } catch (const std::exception& error) {
            WriteAll(end, std::string("F  ") + error.what() + '\n' + '\0');
        }
        ::_exit(0);
    }

    pid_t child;
    int end = -1;
    Clock::time_point began = Clock::now();
    std::string bytes;
};

/// Waits until one of them has something, and returns those that have come to their end.
std::vector<std::size_t> Wait(std::map<std::size_t, Worker>& workers) {
    std::vector<pollfd> ends;
    for (const auto& [number, worker] : workers) {
        ends.push_back({worker.End(), POLLIN, 0});
    }
    ::poll(ends.data(), ends.size(), 1000);
    std::vector<std::size_t> finished;
    std::size_t at = 0;
    for (auto& [number, worker] : workers) {
        if (worker.IsLate()) {
            worker.Kill();
        }
        if (ends[at++].revents != 0 && !worker.Receive()) {
            finished.push_back(number);
        }
    }
    return finished;
}

} // namespace

void DoAll(
    const std::vector<Work>& works,
    unsigned jobs,
    const std::function<void(const std::string&, const Verdict&)>& tell
) {
    std::map<std::size_t, Worker> workers;
    std::map<std::size_t, Verdict> verdicts;
    std::size_t begun = 0;
    for (std::size_t told = 0; told < works.size();) {
        while (workers.size() < jobs && begun < works.size()) {
            workers.emplace(begun, works[begun]);
            ++begun;
        }
        for (const std::size_t number : Wait(workers)) {
            verdicts[number] = workers.at(number).Finish();
            workers.erase(number);
        }
        for (; verdicts.contains(told); ++told) {
            tell(works[told].name, verdicts[told]);
        }
    }
}

} // namespace KTEST
