// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

#include <unistd.h>

namespace KSETUP {

/// An open file or directory, closed when the object ends.
class KFileHandle {
  public:
    KFileHandle() noexcept = default;
    explicit KFileHandle(int opened) noexcept : number(opened) {}
    KFileHandle(KFileHandle&& other) noexcept : number(std::exchange(other.number, -1)) {}
    KFileHandle& operator=(KFileHandle&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    ~KFileHandle() {
        if (number >= 0) {
            ::close(number); // what has to be on the disk was flushed before
        }
    }

    int Get() const noexcept { return number; }
    bool IsOpen() const noexcept { return number >= 0; }

  private:
    int number = -1;
};

} // namespace KSETUP
