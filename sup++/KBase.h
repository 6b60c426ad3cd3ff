// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>

#include <cstddef>
#include <new>

/// The support library: what programs that install software need of the system.
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

    /// The tag is kept as a pointer: both answer with the same text.
    KBase(const KBase&) noexcept = default;
    /// Takes over the tag, and whether it is told, though the class stays what it is.
    KBase& operator=(const KBase&) noexcept = default;

    /// The class name given by the constructor of the derived class, never null.
    const char* GetClassTag() const noexcept { return tagged && tag != nullptr ? tag : ""; }

    /// Takes memory from the support library. Throws std::bad_alloc.
    static void* operator new(std::size_t bytes);
    /// As above, at an address that is a multiple of `alignment`. Throws std::bad_alloc.
    static void* operator new(std::size_t bytes, std::align_val_t alignment);
    /// Takes no memory: `place` stays its owner's, and is large and aligned enough.
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    /// Gives the memory back to the support library. Null is allowed.
    static void operator delete(void* memory) noexcept;
    /// As above, of a type that asks for more alignment than `new` gives by itself.
    static void operator delete(void* memory, std::align_val_t alignment) noexcept;
    /// For a constructor that throws in memory that was there.
    static void operator delete(void*, void*) noexcept {}

  private:
    const char* tag;
    bool tagged;
};

} // namespace KSUP
