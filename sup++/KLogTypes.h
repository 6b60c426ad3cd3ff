// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>

#include <cstdint>

/// A 64-bit value in two halves, as records on disk hold it.
struct SUP_EXPORT _tagQword { // NOLINT(readability-identifier-naming): the interface's own spelling
    std::uint32_t low;        ///< bits 0 to 31
    std::uint32_t high;       ///< bits 32 to 63
};

/// A globally unique id, laid out as RFC 4122 orders its fields.
struct SUP_EXPORT _tagGuid { // NOLINT(readability-identifier-naming): the interface's own spelling
    std::uint32_t data1;     ///< first group
    std::uint16_t data2;     ///< second group
    std::uint16_t data3;     ///< third group
    std::uint8_t data4[8];   ///< fourth and fifth group, byte by byte
};

namespace KSUP {

/// A 64-bit value that logs as one number.
struct SUP_EXPORT KQword {
    std::uint64_t value = 0; ///< without sign; KLogBase writes it in decimal
};

/// An id that logs in its usual form, {00112233-4455-6677-8899-aabbccddeeff}.
struct SUP_EXPORT KGuid {
    _tagGuid value{}; ///< all zero where nothing else is said
};

/// What controls an entry of a log without being part of its text.
struct SUP_EXPORT KLogTypes {
    /// What is put into an entry to steer it.
    enum MODIFIER : std::uint32_t {
        EndEntry = 1,   ///< ends the entry: it is written now, as one line
        StatusCode = 3, ///< the next number is a status: written in decimal and in hexadecimal
    };
};

} // namespace KSUP
