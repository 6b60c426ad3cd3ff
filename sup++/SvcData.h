// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// The process-wide data records: what system this is, which product is installed, and keys of the
/// program's own. All of them are macros too (see KCustomMacro).

#include <sup++/Export.h>

#include <cstddef>
#include <cstdint>

/// The global data record. The offsets of the two names are part of the binary interface.
struct SvcGlobalData {
    /// The saved command line, each argument quoted so that it reads back exactly; null without
    /// one.
    const char* commandLine;
    unsigned char reserved[672 - sizeof(const char*)]; ///< not used; keeps the offsets
    char os[4];                                        ///< "lin"
    char architecture[28]; ///< "x86", "x86_64"; the system's own name for any other
};
static_assert(offsetof(SvcGlobalData, os) == 672);
static_assert(offsetof(SvcGlobalData, architecture) == 676);

/// The product data record. Texts are 32-bit pointers on every system: they lie below 4 GiB.
struct SvcProductData {
    std::uint32_t buildNumber;  ///< as the product data file has it
    unsigned char reserved[32]; ///< not used; keeps the offsets
    std::uint32_t iniFile;      ///< the name of the product's configuration file
    std::uint32_t serviceName;  ///< the name of the product's service
    std::uint32_t product;      ///< the product's name
    std::uint32_t version;      ///< such as "2.1", by SvcGetProductText
};
static_assert(offsetof(SvcProductData, buildNumber) == 0);
static_assert(offsetof(SvcProductData, iniFile) == 36);

/// Never null.
///
/// Lifetime of the process
/// Thread   any; the command line is to be set before other threads read it
SUP_EXPORT const SvcGlobalData* SvcGetGlobalDataEx() noexcept;

/// Never null. Without product data: build 0, "dps.ini", "dps", "DPS", "0.0.0".
///
/// Lifetime of the process; texts of former product data stay readable
/// Thread   any; SvcLoadProductData is to be called before other threads read the record
SUP_EXPORT const SvcProductData* SvcGetOEMDataEx() noexcept;

/// The text that a 32-bit pointer of the product data record stands for.
inline const char* SvcGetProductText(std::uint32_t pointer) noexcept {
    return reinterpret_cast<const char*>(static_cast<std::uintptr_t>(pointer));
}

/// Reads the product data from section [product] of a profile: `name`, `serviceName`, `iniFile`,
/// `version`, `buildNumber`. What is missing there keeps its default.
///
/// Returns  0, errno when the file cannot be read, 36 for a null path, for one of the three names
///          that is empty or has a "/" (they become names of files), a control character in a text,
///          and a build number that is none; the record is then as it was
[[nodiscard]] SUP_EXPORT unsigned SvcLoadProductData(const char* productProfile) noexcept;

/// Sets a key of the program's own, a macro from now on. Both numbers are reserved and must be 0.
///
/// Returns  0, 36 for an invalid argument, or ENOMEM
/// Thread   any
[[nodiscard]] SUP_EXPORT unsigned SvcSetCustomKey(
    unsigned reserved, unsigned alsoReserved, const char* name, const char* value
) noexcept;

/// Copies the value into `buffer` of `size` bytes.
///
/// Returns  0, 64 when the key is not set, 36 for an invalid argument or a buffer that is
///          too small (it is then unchanged)
/// Thread   any
[[nodiscard]] SUP_EXPORT unsigned SvcGetCustomKey(
    unsigned reserved, unsigned alsoReserved, const char* name, unsigned size, char* buffer
) noexcept;
