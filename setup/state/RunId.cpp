// SPDX-License-Identifier: MIT
#include <setup/state/RunId.h>

#include <array>
#include <cstdio>
#include <ctime>

#include <unistd.h>

namespace KSETUP {

std::string MakeRunId() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm utc{};
    ::gmtime_r(&now.tv_sec, &utc);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y%m%dT%H%M%S", &utc);
    std::array<char, 32> rest{};
    std::snprintf(
        rest.data(), rest.size(), ".%09ldZ-%ld", now.tv_nsec, static_cast<long>(::getpid())
    );
    return std::string(date.data()) + rest.data();
}

} // namespace KSETUP
