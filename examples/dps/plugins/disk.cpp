// SPDX-License-Identifier: MIT
#include "dps/plugins/Plugin.h"

#include <cstdio>

#include <sys/statvfs.h>

bool DpsPluginTell(char* buffer, std::size_t size) noexcept {
    struct statvfs disk {};
    if (::statvfs("/", &disk) != 0) {
        return false;
    }
    constexpr unsigned long long mib = 1ULL << 20U;
    std::snprintf(buffer, size, "%llu MiB of disk free", disk.f_bavail * disk.f_frsize / mib);
    return true;
}
