// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>

#include <boost/shared_ptr.hpp>

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace KSUP {

/// The text of the whole system: UTF-8 bytes without NUL, addressed by characters.
///
/// Every position and count is one of characters, never of bytes, save where the name says bytes. A
/// byte that is not part of a well-formed sequence is a character of its own (see Txt.h). A null
/// `const char*` is an empty text everywhere; a text with a NUL inside ends there.
///
/// Thread   not to be changed while another thread reads it; copies are independent of each other
///
///     KSUP::KString line("copy,*.so,lib");
///     for (const KSUP::KString& field : line.SectionVector(',', true)) { … }
class SUP_EXPORT KString {
  public:
    /// No position: no match, or up to the end.
    static constexpr unsigned npos = 0xFFFFFFFFU;

    KString() noexcept = default;
    /// A copy of the bytes; of null, an empty text.
    // NOLINTNEXTLINE(google-explicit-constructor): texts convert
    KString(const char* bytes) : text(bytes != nullptr ? bytes : "") {}
    /// A copy of the bytes up to the first NUL.
    // NOLINTNEXTLINE(google-explicit-constructor): texts convert
    KString(const std::string& bytes) : text(bytes.c_str()) {}
    /// Takes the bytes without copying them; what is behind a NUL is cut off.
    KString(std::string&& bytes); // NOLINT(google-explicit-constructor): texts convert
    template <std::integral T>
    KString(T) = delete; ///< a number is not a text: see KUtil::NumberToString
    virtual ~KString();

    /// Independent of `other`: either may change on another thread.
    KString(const KString& other);
    /// Takes the text; `other` is empty then.
    KString(KString&& other) noexcept;
    /// What c_str() answered before is no longer valid.
    KString& operator=(const KString& other);
    /// Takes the text; `other` is empty then.
    KString& operator=(KString&& other) noexcept;
    /// Becomes a copy of the bytes; of null, an empty text.
    KString& operator=(const char* bytes);

    /// Appends; `tail` may be this text itself.
    KString& operator+=(const KString& tail);
    /// Appends a text; null appends nothing.
    KString& operator+=(const char* tail);

    /// Appends `byteCount` bytes; the text ends at a NUL among them.
    KString& Cat(const char* bytes, unsigned byteCount);

    /// Replaces `find` by `replacement` from character `start` on; what was put in is not searched
    /// again. `most` 0 or npos means every occurrence.
    ///
    /// Returns  the number of replacements
    /// Throws   KError 36 when `start` is not inside a text that is not empty; nothing is changed
    unsigned Replace(
        const char* find, const char* replacement, unsigned start, unsigned most, bool caseSensitive
    );

    /// Cuts the text to its first `count` characters.
    KString& Truncate(unsigned count);

    /// Lowers the ASCII letters.
    KString& MakeLower();

    /// Never null, ends with NUL. Lifetime until the text changes.
    const char* c_str() const noexcept { return text.c_str(); }
    /// The same as c_str().
    const char* GetText() const noexcept { return text.c_str(); }
    /// In bytes, without the NUL at the end.
    unsigned GetSize() const noexcept { return static_cast<unsigned>(text.size()); }
    /// In characters. Counted once and remembered.
    unsigned GetCount() const noexcept;
    /// Whether there is no byte.
    bool IsEmpty() const noexcept { return text.empty(); }

    /// The non-empty fields between separators, blanks and all. There is no quoting and no escape:
    /// a separator is never part of a field, and an empty field vanishes, so that the fields behind
    /// it move up. That is what rule lines are written for.
    std::vector<KString> SectionVector(char separator, bool caseSensitive) const;

    /// The text before and behind the first separator, or the whole and an empty text. With
    /// `honourBackslash` a backslash anywhere before a `first` protects that one `first`, never a
    /// `second`; backslashes stay in the text.
    std::pair<KString, KString>
    Split(char first, char second, bool caseSensitive, bool honourBackslash) const;

    /// The position of the first `part` at or behind character `start`, or -1.
    int Find(const char* part, unsigned start, bool caseSensitive) const noexcept;

    /// The first `count` characters; the whole text where it is shorter.
    KString Left(unsigned count) const;
    /// The last `count` characters; the whole text where it is shorter.
    KString Right(unsigned count) const;

    /// The text as NUL-terminated UTF-16, made on first use and shared by copies.
    ///
    /// Lifetime until the text changes
    /// Thread   counts as a change of this object
    const unsigned short* GetWideCopy();

  private:
    /// \cond they are told of below
    friend SUP_EXPORT KString operator+(const KString& left, const KString& right);
    friend SUP_EXPORT KString operator+(const KString& left, const char* right);
    friend SUP_EXPORT KString operator+(const char* left, const KString& right);
    /// \endcond
    /// Two runs of bytes without NUL, one behind the other.
    static KString
    Join(const char* left, std::size_t leftBytes, const char* right, std::size_t rightBytes);
    /// Takes bytes that are known to have no NUL, without looking for one.
    static KString Whole(const char* bytes, std::size_t byteCount);
    unsigned ConvertCharacterOffsetToByteOffset(unsigned index) const noexcept;
    unsigned ConvertCharacterPointerToCharacterOffset(const char* character) const noexcept;
    /// Every change of the text ends here.
    void DropCaches() noexcept;

    std::string text;
    boost::shared_ptr<unsigned short[]> wideCopy;
    /// npos means not yet counted. Atomic because counting is a read to the caller: two threads may
    /// do it at once, and both store the same number.
    mutable std::atomic<std::uint32_t> characterCount{npos};
};

/// A text with the other one behind it. A temporary one is reused.
//!@{
SUP_EXPORT KString operator+(const KString& left, const KString& right);
SUP_EXPORT KString operator+(const KString& left, const char* right);
SUP_EXPORT KString operator+(const char* left, const KString& right);
SUP_EXPORT KString operator+(KString&& left, const KString& right);
SUP_EXPORT KString operator+(KString&& left, const char* right);
//!@}

/// Comparison is byte-wise, as unsigned bytes.
//!@{
SUP_EXPORT bool operator==(const KString& left, const KString& right) noexcept;
SUP_EXPORT bool operator==(const KString& left, const char* right) noexcept;
SUP_EXPORT bool operator<(const KString& left, const KString& right) noexcept;
SUP_EXPORT bool operator<(const KString& left, const char* right) noexcept;
SUP_EXPORT bool operator<(const char* left, const KString& right) noexcept;
//!@}

/// Writes the bytes, as a stream writes any text.
template <class Traits>
std::basic_ostream<char, Traits>&
operator<<(std::basic_ostream<char, Traits>& stream, const KString& text) {
    return stream << text.c_str();
}

} // namespace KSUP
