// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace KSETUP {

/// Where the archive in a bundle begins, as the script before it says, and how long it is.
struct KBundlePayload {
    std::size_t offset = 0;
    std::uint64_t byteCount = 0;
};

/// The script in front of a bundle is shorter than this.
inline constexpr std::size_t longestBundleScript = std::size_t{1} << 20U;

/// Reads the begin of a file, of which `begin` has to hold longestBundleScript bytes, or all. Nothing
/// for a file that MakeBundle did not make: nothing of the script is run to find it out.
std::optional<KBundlePayload> FindBundlePayload(std::string_view begin);

} // namespace KSETUP
