// SPDX-License-Identifier: MIT
#pragma once

#include <new>

namespace KSYS {

/// Room for an object that belongs to the process: made on first use, without the heap, and never
/// destroyed, because threads may still ask for it while the process ends.
///
///     static NeverDestroyed<Table> table;
///     return table.Get();
template <class T>
class NeverDestroyed {
  public:
    NeverDestroyed() { new (storage) T(); }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T& Get() noexcept { return *std::launder(reinterpret_cast<T*>(storage)); }

  private:
    alignas(T) unsigned char storage[sizeof(T)];
};

} // namespace KSYS
