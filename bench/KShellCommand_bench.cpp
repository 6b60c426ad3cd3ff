// SPDX-License-Identifier: MIT
// Commands in a row, each begun when the one before it has ended, beside the bare shell and beside
// the bare shell with the least thread that can wait for it. All three on one processor, and on
// all: waking a thread on another processor costs what the machine makes of it, on a virtual one
// up to half of a shell's start.
#include <sup++/KShellCommand.h>
#include <sup++/SvcDispatch.h>

#include <benchmark/benchmark.h>

#include <array>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include <sched.h>
#include <spawn.h>
#include <sys/wait.h>

namespace {

constexpr int commands = 1000;

/// Keeps this thread, and what it starts, on one processor while it lives.
class OneProcessor {
  public:
    explicit OneProcessor(bool wanted) {
        sched_getaffinity(0, sizeof(former), &former);
        if (wanted) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(static_cast<unsigned>(sched_getcpu()), &one);
            sched_setaffinity(0, sizeof(one), &one);
        }
    }
    ~OneProcessor() { sched_setaffinity(0, sizeof(former), &former); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

  private:
    cpu_set_t former{};
};

void RunCommand() {
    KSUP::KShellCommand command;
    command.Execute("true");
    while (command.IsThreadActive()) {
        SvcPollingDispatch();
    }
}

/// The process, or 0.
pid_t Spawn() {
    std::array<std::string, 3> words{"/bin/sh", "-c", "true"};
    // What a command is given.
    std::array<std::string, 3> variables{
        "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "LANG=C.UTF-8"};
    const std::array<char*, 4> arguments{words[0].data(), words[1].data(), words[2].data()};
    const std::array<char*, 4> environment{
        variables[0].data(), variables[1].data(), variables[2].data()};
    pid_t process = 0;
    const int error =
        ::posix_spawn(&process, "/bin/sh", nullptr, nullptr, arguments.data(), environment.data());
    return error == 0 ? process : 0;
}

/// Whether it ended well.
bool WaitFor(pid_t process) {
    int status = 0;
    return process != 0 && ::waitpid(process, &status, 0) == process && status == 0;
}

bool SpawnAndWait() {
    return WaitFor(Spawn());
}

bool SpawnAndWaitOnThread() {
    std::mutex guard;
    std::condition_variable ended;
    bool done = false;
    bool good = false;
    std::thread waiting([&, process = Spawn()] {
        const bool well = WaitFor(process);
        {
            const std::lock_guard hold(guard);
            good = well;
            done = true;
        }
        ended.notify_all();
    });
    {
        std::unique_lock hold(guard);
        ended.wait(hold, [&] { return done; });
    }
    waiting.join();
    return good;
}

void Commands(benchmark::State& state) {
    const OneProcessor kept(state.range(0) == 1);
    for (auto _ : state) {
        for (int number = 0; number < commands; ++number) {
            RunCommand();
        }
    }
}

template <bool (*Run)()>
void Bare(benchmark::State& state) {
    const OneProcessor kept(state.range(0) == 1);
    for (auto _ : state) {
        for (int number = 0; number < commands; ++number) {
            if (!Run()) {
                state.SkipWithError("posix_spawn");
                return;
            }
        }
    }
}

constexpr int onAll = 0;
constexpr int onOne = 1;

BENCHMARK(Commands)->ArgName("one")->Arg(onAll)->Arg(onOne)->Iterations(1)->UseRealTime();
BENCHMARK(Bare<SpawnAndWait>)
    ->Name("Spawns")
    ->ArgName("one")
    ->Arg(onAll)
    ->Arg(onOne)
    ->Iterations(1)
    ->UseRealTime();
BENCHMARK(Bare<SpawnAndWaitOnThread>)
    ->Name("Threads")
    ->ArgName("one")
    ->Arg(onAll)
    ->Arg(onOne)
    ->Iterations(1)
    ->UseRealTime();

} // namespace
