// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace KSUP {

/// Pointers in order; when it owns them, Release and the destructor delete what they point to.
///
/// Thread   nothing here locks
template <class T>
class KList {
  public:
    /// `ownsItems` says whether items are deleted when they leave the list and at its end.
    explicit KList(bool ownsItems) noexcept : owning(ownsItems) {}
    ~KList() { Release(); }
    KList(const KList&) = delete;
    KList& operator=(const KList&) = delete;

    /// Puts `item` at the end and, in an owning list, takes it over.
    ///
    /// Throws   std::bad_alloc; `item` then still belongs to the caller's pointer
    void Append(std::unique_ptr<T>& item) {
        items.push_back(item.get());
        static_cast<void>(item.release());
    }

    /// Empties the list, first to last.
    void Release() noexcept {
        std::vector<T*> former;
        former.swap(items);
        if (owning) {
            for (T* item : former) {
                delete item;
            }
        }
    }

    /// Items, also those that the list does not own; 0 after Release.
    std::size_t GetCount() const noexcept { return items.size(); }
    /// The item at `index`, which must be below GetCount. It stays the list's.
    T* operator[](std::size_t index) const noexcept { return items[index]; }

  private:
    std::vector<T*> items;
    bool owning;
};

} // namespace KSUP
