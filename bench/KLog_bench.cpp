// SPDX-License-Identifier: MIT
// What an entry of the setup log costs beside the write(2) of its bytes.
#include <sup++/KLog.h>

#include <benchmark/benchmark.h>

#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int entries = 100000;
constexpr char path[] = "bench.log";
// As the engine logs a rule: a prefix, a text and a rule's description.
constexpr char prefix[] = "KINS::KInstallRuleManager:";
constexpr char words[] = "Executing rule -> ";
constexpr char rule[] =
    "File copy /kit/payload/usr/include/boost/config/* to /opt/product/usr/include/boost/config";
constexpr char time[] = "\t2026-01-31T23:59:59.123Z\n";

void Entries(benchmark::State& state) {
    const KSUP::KString name(prefix);
    const KSUP::KString description(rule);
    for (auto _ : state) {
        state.PauseTiming();
        ::unlink(path);
        KSUP::KLog log;
        log.Open(path);
        state.ResumeTiming();
        for (int entry = 0; entry < entries; ++entry) {
            log << KSUP::KLogPrefix(name) << words << description << KSUP::KLogTypes::EndEntry;
        }
        state.PauseTiming();
        log.Close();
        state.ResumeTiming();
    }
    ::unlink(path);
}
BENCHMARK(Entries)->Iterations(1)->UseRealTime();

void Writes(benchmark::State& state) {
    const std::string line = std::string(prefix) + " " + words + rule + time;
    for (auto _ : state) {
        state.PauseTiming();
        ::unlink(path);
        const int file = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
        state.ResumeTiming();
        for (int entry = 0; entry < entries; ++entry) {
            if (::write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
                state.SkipWithError("write");
            }
        }
        state.PauseTiming();
        ::close(file);
        state.ResumeTiming();
    }
    ::unlink(path);
}
BENCHMARK(Writes)->Iterations(1)->UseRealTime();

} // namespace
