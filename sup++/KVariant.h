// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KHeapPtr.h>
#include <sup++/KString.h>

#include <cstdint>

namespace KSUP {

/// A value that knows its type; so far an empty one or a text. Errors carry one as information, and
/// the rule manager keeps one for each class of rules.
class SUP_EXPORT KVariant {
  public:
    /// What a value can be.
    enum class Type : std::uint32_t { Empty = 0, Text = 4 };

    KVariant() noexcept;
    /// Keeps its own bytes, the NUL at the end among them.
    KVariant(const KString& text); // NOLINT(google-explicit-constructor): texts convert
    /// A copy of the text; null is an empty text.
    KVariant(const char* text); // NOLINT(google-explicit-constructor): texts convert
    ~KVariant();
    /// Copies the bytes and the type. Throws std::bad_alloc.
    KVariant(const KVariant&);
    /// Without copying; the other one has no bytes then.
    KVariant(KVariant&&) noexcept;
    /// What GetData answered before is no longer valid. Throws std::bad_alloc.
    KVariant& operator=(const KVariant&);
    /// Without copying; GetData of before belongs to the other one now.
    KVariant& operator=(KVariant&&) noexcept;

    /// A Type as its number: 0 for an empty value, 4 for a text.
    std::uint32_t GetType() const noexcept { return static_cast<std::uint32_t>(type); }
    /// The number of bytes kept; a text's terminating NUL is one of them.
    unsigned GetSize() const noexcept { return static_cast<unsigned>(value.GetCount()); }
    /// The bytes, null for an empty value.
    const unsigned char* GetData() const noexcept { return value.GetData(); }
    /// The text; empty for an empty value.
    KString GetString() const;

  private:
    KHeapPtr<unsigned char> value;
    Type type;
};

} // namespace KSUP
