// SPDX-License-Identifier: MIT
//
// A run in which one allocation fails. There are some ten thousand in a run, so a stride picks them:
// a prime, so that it meets each place in the code sooner or later.
#include "KAftermath.h"
#include "Sweeps.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace KSWEEP {

namespace {

const std::string countFile = "/srv/sweep/allocations";

/// The command with the allocator in front of it that fails once; 0 for one that only counts.
std::vector<std::string> WithFailure(std::vector<std::string> words, unsigned long nth) {
    const auto library =
        std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() /
        "lib/libfailalloc.so";
    std::vector<std::string> all = {
        "/usr/bin/env",
        "FAILALLOC_NTH=" + std::to_string(nth),
        "FAILALLOC_COUNT=" + countFile,
        "LD_PRELOAD=" + library.string()};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

unsigned long CountAllocations(const KSubject& subject, const KWay& way) {
    subject.GetMachine().PutBack(way.from);
    std::filesystem::remove(countFile);
    RunUntraced(WithFailure(subject.Words(way.words), 0));
    unsigned long count = 0;
    std::ifstream(countFile) >> count;
    if (count == 0) {
        throw std::runtime_error("the allocations of a run cannot be counted: is the library there?"
        );
    }
    return count;
}

} // namespace

void SweepAllocations(const KSubject& subject, const KSelection& selection, KReport& report) {
    constexpr unsigned long stride = 37;
    constexpr unsigned long first =
        11; // those before it are made before main, where nothing can catch
    for (const KWay& way : subject.GetWays()) {
        if (!selection.HasWay(way.name)) {
            continue;
        }
        report.Begin(way.name);
        unsigned number = 0; // as with errors
        const unsigned long count = CountAllocations(subject, way);
        KJudged judged;
        for (unsigned long nth = first; nth <= count; nth += stride) {
            const std::string name = way.name + ":" + std::to_string(nth);
            if (!selection.Has(number++, name)) {
                continue;
            }
            subject.GetMachine().PutBack(way.from);
            const KTracedEnd end = RunUntraced(WithFailure(subject.Words(way.words), nth));
            report.Add(
                name,
                "allocation " + std::to_string(nth) + " of " + std::to_string(count),
                KAftermath(subject, way).FindWrong(end, ::strerrordesc_np(ENOMEM), judged)
            );
        }
        report.End();
    }
}

} // namespace KSWEEP
