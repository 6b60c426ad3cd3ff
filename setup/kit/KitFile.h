// SPDX-License-Identifier: MIT
#pragma once

#include <span>

#include <sys/types.h>

namespace KSETUP {

/// A file of a kit that "kit new" writes. In name and text these stand for what hangs on the kit's
/// name: "@NAME@" for the product's name, "@SERVICE@" for its service's, "@USER@" for its user's.
struct KKitFile {
    const char* name;
    mode_t mode;
    const char* text;
};

/// The first kit of a service: with a user of its own, a directory for its data, and a unit that
/// keeps it from all else. It comes besides what every first kit has, or in its place.
std::span<const KKitFile> ServiceKitFiles() noexcept;

} // namespace KSETUP
