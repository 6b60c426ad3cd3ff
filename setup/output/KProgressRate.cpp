// SPDX-License-Identifier: MIT
#include <setup/output/KProgressRate.h>

#include <algorithm>
#include <cmath>

namespace KSETUP {

namespace {

constexpr auto interval = std::chrono::seconds(1);
constexpr std::size_t mostSamples = 6;   // so the last five seconds
constexpr std::size_t steadySamples = 4; // three seconds that are alike
constexpr double alike = 2;              // times the mean, or a half of it

} // namespace

void KProgressRate::Note(Clock::time_point now, std::uint64_t bytesDone) {
    if (!samples.empty() && now - samples.back().time < interval) {
        return;
    }
    samples.push_back({now, bytesDone});
    if (samples.size() > mostSamples) {
        samples.pop_front();
    }
}

double KProgressRate::RateBetween(const Sample& first, const Sample& last) {
    const std::chrono::duration<double> took = last.time - first.time;
    return static_cast<double>(last.bytes - first.bytes) / took.count();
}

std::optional<double> KProgressRate::Get() const {
    if (samples.size() < 2 || samples.back().bytes <= samples.front().bytes) {
        return std::nullopt;
    }
    return RateBetween(samples.front(), samples.back());
}

std::optional<std::chrono::seconds> KProgressRate::GetTimeFor(std::uint64_t bytes) const {
    const std::optional<double> mean = Get();
    if (!mean || samples.size() < steadySamples) {
        return std::nullopt;
    }
    for (std::size_t at = 1; at < samples.size(); ++at) {
        const double one = RateBetween(samples[at - 1], samples[at]);
        if (one > *mean * alike || one < *mean / alike) {
            return std::nullopt;
        }
    }
    return std::chrono::seconds(std::llround(std::ceil(static_cast<double>(bytes) / *mean)));
}

} // namespace KSETUP
