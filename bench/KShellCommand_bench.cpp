// SPDX-License-Identifier: MIT
// Commands in a row, each begun when the one before it has ended, beside the bare shell: what is
// left of a command that does nothing is the shell's own start.
#include <sup++/KShellCommand.h>
#include <sup++/SvcDispatch.h>

#include <benchmark/benchmark.h>

#include <array>
#include <string>

#include <spawn.h>
#include <sys/wait.h>

namespace {

constexpr int commands = 1000;

void Commands(benchmark::State& state) {
    for (auto _ : state) {
        for (int number = 0; number < commands; ++number) {
            KSUP::KShellCommand command;
            command.Execute("true");
            while (command.IsThreadActive()) {
                SvcPollingDispatch();
            }
        }
    }
}
BENCHMARK(Commands)->Iterations(1)->UseRealTime();

void Spawns(benchmark::State& state) {
    std::array<std::string, 3> words{"/bin/sh", "-c", "true"};
    // What a command is given.
    std::array<std::string, 3> variables{
        "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "LANG=C.UTF-8"};
    const std::array<char*, 4> arguments{words[0].data(), words[1].data(), words[2].data()};
    const std::array<char*, 4> environment{
        variables[0].data(), variables[1].data(), variables[2].data()};
    for (auto _ : state) {
        for (int number = 0; number < commands; ++number) {
            pid_t process = 0;
            int status = 0;
            const int error = ::posix_spawn(
                &process, "/bin/sh", nullptr, nullptr, arguments.data(), environment.data()
            );
            if (error != 0 || ::waitpid(process, &status, 0) != process || status != 0) {
                state.SkipWithError("posix_spawn");
                return;
            }
        }
    }
}
BENCHMARK(Spawns)->Iterations(1)->UseRealTime();

} // namespace
