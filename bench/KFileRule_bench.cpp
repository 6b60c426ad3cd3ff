// SPDX-License-Identifier: MIT
// The copy loop of a file rule, without the process around it, beside the minimal one.
#include "MinimalCopy.h"

#include <ins/KFileRule.h>
#include <ins/KInstallRuleManager.h>
#include <ins/KInstaller.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

/// Sources that are laid once, and an empty directory for each copy of them.
class Files {
  public:
    Files(const char* name, int files, std::size_t fileBytes)
        : source(std::filesystem::current_path() / name),
          target(source.string() + "-target") {
        if (!std::filesystem::exists(source)) {
            std::filesystem::create_directory(source);
            const std::string bytes(fileBytes, 'x');
            for (int file = 0; file < files; ++file) {
                std::ofstream(source / ("file-" + std::to_string(file))) << bytes;
            }
        }
        Empty();
        ::sync();
    }
    ~Files() { std::filesystem::remove_all(target); }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

    void Empty() const {
        std::filesystem::remove_all(target);
        std::filesystem::create_directory(target);
    }

    const std::filesystem::path source;
    const std::filesystem::path target;
};

void ByRule(benchmark::State& state, const char* name, int count, std::size_t bytes) {
    const Files files(name, count, bytes);
    KINS::KInstaller installer;
    KINS::KInstallRuleManager manager(&installer);
    double last = 0;
    manager.SetCallback([&last](const KSUP::KString&, double percent) { last = percent; });
    KINS::KFileRule rule(
        &manager, ("copy,*," + files.source.string() + "," + files.target.string()).c_str()
    );
    rule.Initialize();
    for (auto _ : state) {
        rule.Execute();
        state.PauseTiming();
        files.Empty();
        state.ResumeTiming();
    }
    benchmark::DoNotOptimize(last);
}

void ByMinimalLoop(benchmark::State& state, const char* name, int count, std::size_t bytes) {
    const Files files(name, count, bytes);
    double last = 0;
    KBENCH::MinimalProgress progress([&last](const std::string&, double percent) { last = percent; }
    );
    for (auto _ : state) {
        KBENCH::MinimalCopyTree(files.source.c_str(), files.target.c_str(), progress);
        state.PauseTiming();
        files.Empty();
        state.ResumeTiming();
    }
    benchmark::DoNotOptimize(last);
}

BENCHMARK_CAPTURE(ByRule, Large, "large", 1, std::size_t{256} << 20)->Iterations(2)->UseRealTime();
BENCHMARK_CAPTURE(ByMinimalLoop, Large, "large", 1, std::size_t{256} << 20)
    ->Iterations(2)
    ->UseRealTime();
BENCHMARK_CAPTURE(ByRule, Small, "small", 2000, std::size_t{4} << 10)->Iterations(2)->UseRealTime();
BENCHMARK_CAPTURE(ByMinimalLoop, Small, "small", 2000, std::size_t{4} << 10)
    ->Iterations(2)
    ->UseRealTime();

} // namespace
