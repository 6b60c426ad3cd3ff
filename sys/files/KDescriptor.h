// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

#include <unistd.h>

namespace KSYS {

/// Owns one open file descriptor.
class KDescriptor {
  public:
    KDescriptor() noexcept = default;
    explicit KDescriptor(int open) noexcept : descriptor(open) {}
    ~KDescriptor() { Reset(); }
    KDescriptor(KDescriptor&& other) noexcept : descriptor(other.Release()) {}
    KDescriptor& operator=(KDescriptor&& other) noexcept {
        Reset(other.Release());
        return *this;
    }

    int Get() const noexcept { return descriptor; }
    bool IsOpen() const noexcept { return descriptor >= 0; }
    int Release() noexcept { return std::exchange(descriptor, -1); }
    void Reset(int open = -1) noexcept {
        if (descriptor >= 0 && descriptor != open) {
            ::close(descriptor);
        }
        descriptor = open;
    }

  private:
    int descriptor = -1;
};

} // namespace KSYS
