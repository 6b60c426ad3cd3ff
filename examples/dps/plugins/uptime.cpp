// SPDX-License-Identifier: MIT
#include "dps/plugins/Plugin.h"

#include <cstdio>

#include <sys/sysinfo.h>

bool DpsPluginTell(char* buffer, std::size_t size) noexcept {
    constexpr long secondsOfMinute = 60;
    struct sysinfo machine {};
    if (::sysinfo(&machine) != 0) {
        return false;
    }
    std::snprintf(buffer, size, "up %ld min", machine.uptime / secondsOfMinute);
    return true;
}
