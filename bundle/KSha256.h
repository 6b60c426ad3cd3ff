// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace KBUNDLE {

/// A SHA-256, as its 32 bytes.
using KSha256Bytes = std::array<std::uint8_t, 32>;

/// A SHA-256 that is being computed, by the part of libcrypto that is small where it is linked
/// statically, reads no configuration and cannot fail.
class KSha256 {
  public:
    KSha256() noexcept;

    void Add(std::string_view bytes) noexcept;
    /// Of all that was added; begins anew.
    KSha256Bytes End() noexcept;

  private:
    static constexpr std::size_t stateBytes = 128;
    alignas(8) std::array<std::uint8_t, stateBytes> state;
};

KSha256Bytes Sha256Of(std::string_view bytes) noexcept;

} // namespace KBUNDLE
