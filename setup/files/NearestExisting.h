// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace KSETUP {

/// The directory itself, or the nearest one above it that is there: on its file system, and below
/// what its owner allows, missing ones will be made.
std::string NearestExisting(const std::string& directory);

} // namespace KSETUP
