// SPDX-License-Identifier: MIT
// Loading a script into rules, and the status of a rule at work. Run as root, as an installer is.
#include "MinimalCopy.h"

#include <ins/KInstallRuleManager.h>
#include <ins/KInstaller.h>
#include <sup++/KUtil.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <malloc.h>

namespace {

constexpr unsigned logDirectory = 19; // of the path map
constexpr int statusCalls = 100000;

std::string ScriptOf(long rules) {
    const std::string path = "bench-" + std::to_string(rules) + ".ini";
    if (!std::filesystem::exists(path)) {
        std::ofstream file(path);
        file << "[install]\n";
        for (long rule = 0; rule < rules; ++rule) {
            file << "file=copy,file-" << rule << ".so,$pathSource$payload/usr/lib/module-"
                 << rule / 20 << ",$pathTarget$usr/lib/module-" << rule / 20 << "\n";
        }
    }
    return path;
}

/// An installer whose log and script lie in the current directory, for a manager of our own.
std::unique_ptr<KINS::KInstaller> InstallerOf(long rules) {
    KSUP::KUtil::SetPathMap(logDirectory, ".");
    KSUP::KUtil::SetPathMap(57, "/opt/product/"); // pathTarget
    auto installer = std::make_unique<KINS::KInstaller>();
    installer->Initialize(ScriptOf(rules).c_str());
    return installer;
}

/// Gives all free memory back, so that each measurement pays for its own: else what ran before it
/// decides how much of the heap is there already.
void ForgetMemory() {
    ::malloc_trim(0);
}

/// From the bytes on the disk to rules in memory.
void LoadRules(benchmark::State& state, bool logged) {
    ForgetMemory();
    for (auto _ : state) {
        const auto installer = InstallerOf(state.range(0));
        if (!logged) {
            installer->GetLog().Close();
        }
        KINS::KInstallRuleManager manager(installer.get());
        manager.LoadSection("install");
        state.PauseTiming(); // how rules go is no part of loading them
        if (manager.GetRuleCount() != state.range(0)) {
            state.SkipWithError("not every line became a rule");
        }
        manager.Clear();
        std::filesystem::remove(installer->GetLog().GetPath().c_str());
        state.ResumeTiming();
    }
}

void Load(benchmark::State& state) {
    LoadRules(state, true);
}
BENCHMARK(Load)->Arg(100000)->Arg(1000000)->Iterations(1)->UseRealTime();

void LoadUnlogged(benchmark::State& state) {
    LoadRules(state, false);
}
BENCHMARK(LoadUnlogged)->Arg(100000)->Arg(1000000)->Iterations(1)->UseRealTime();

/// The bare line splitter: from the bytes on the disk to lines in memory.
void SplitLines(benchmark::State& state) {
    const std::string path = ScriptOf(state.range(0));
    ForgetMemory();
    for (auto _ : state) {
        std::ifstream file(path);
        std::vector<std::string> lines;
        std::string line;
        while (std::getline(file, line)) {
            lines.push_back(line);
        }
        state.PauseTiming();
        if (lines.size() != static_cast<std::size_t>(state.range(0)) + 1) {
            state.SkipWithError("not every line was found");
        }
        lines = {};
        state.ResumeTiming();
    }
}
BENCHMARK(SplitLines)->Arg(100000)->Arg(1000000)->Iterations(1)->UseRealTime();

void Status(benchmark::State& state) {
    KINS::KInstaller installer;
    KINS::KInstallRuleManager manager(&installer);
    double last = 0;
    manager.SetCallback([&last](const KSUP::KString&, double percent) { last = percent; });
    const KSUP::KString text("Copying file libexample.so.1.0.0");
    for (auto _ : state) {
        for (int call = 1; call <= statusCalls; ++call) {
            manager.SetCurrentRuleStatus(text, static_cast<double>(call) / statusCalls * 100.0);
        }
    }
    if (last != 100.0 || manager.GetCurrentRuleStatus() != text + " (100%)") {
        state.SkipWithError("the last status is not the last one set");
    }
}
BENCHMARK(Status)->UseRealTime();

void BareStatus(benchmark::State& state) {
    double last = 0;
    KBENCH::MinimalProgress progress([&last](const std::string&, double percent) { last = percent; }
    );
    const std::string text("Copying file libexample.so.1.0.0");
    for (auto _ : state) {
        for (int call = 1; call <= statusCalls; ++call) {
            progress.Report(text, static_cast<double>(call) / statusCalls * 100.0);
        }
    }
    if (last != 100.0 || progress.StatusSize() != text.size() + 7) {
        state.SkipWithError("the last status is not the last one set");
    }
}
BENCHMARK(BareStatus)->UseRealTime();

} // namespace
