// SPDX-License-Identifier: MIT
// A copy of a profile is to cost what a pointer costs, however long the file is.
#include <sup++/KProfile.h>

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

#include <fstream>

#include <unistd.h>

namespace {

constexpr char path[] = "bench.ini";

KSUP::KProfile ProfileOf(int lines) {
    std::ofstream file(path);
    file << "[section]\n";
    for (int line = 0; line < lines; ++line) {
        file << "key" << line << "=value " << line << "\n";
    }
    file.close();
    KSUP::KProfile profile;
    profile.Open(path);
    ::unlink(path);
    return profile;
}

void Copy(benchmark::State& state, int lines) {
    const KSUP::KProfile profile = ProfileOf(lines);
    for (auto _ : state) {
        const KSUP::KProfile copy(profile); // NOLINT: the copy is what is measured
        benchmark::DoNotOptimize(&copy);
    }
}
BENCHMARK_CAPTURE(Copy, Large, 1000000);
BENCHMARK_CAPTURE(Copy, Small, 10);

void CopyPointer(benchmark::State& state) {
    const auto pointer = boost::make_shared<int>(0);
    for (auto _ : state) {
        const boost::shared_ptr<int> copy(pointer); // NOLINT: as above
        benchmark::DoNotOptimize(&copy);
    }
}
BENCHMARK(CopyPointer);

} // namespace
