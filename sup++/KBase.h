// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>

#include <cstddef>
#include <new>

namespace KSUP {

/// The common base of the classes of both libraries: names the class in dumps and traces, and takes
/// its memory from one place, so that an object made in one library can be deleted in another.
///
/// Lifetime the class tag is kept as a pointer: pass a string literal
/// Thread   nothing here locks
class SUP_EXPORT KBase {
  public:
    /// `keepsTag` says whether GetClassTag answers with the tag (true) or with an empty text.
    KBase(const char* classTag, bool keepsTag) noexcept : tag(classTag), tagged(keepsTag) {}
    virtual ~KBase();

    KBase(const KBase&) noexcept = default;
    KBase& operator=(const KBase&) noexcept = default;

    /// The class name given by the constructor of the derived class, never null.
    const char* GetClassTag() const noexcept { return tagged && tag != nullptr ? tag : ""; }

    static void* operator new(std::size_t bytes);
    static void* operator new(std::size_t bytes, std::align_val_t alignment);
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void* memory) noexcept;
    static void operator delete(void* memory, std::align_val_t alignment) noexcept;
    static void operator delete(void*, void*) noexcept {}

  private:
    const char* tag;
    bool tagged;
};

} // namespace KSUP
