// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KBase.h>
#include <sup++/KError.h>
#include <sup++/KHeapPtr.h>
#include <sup++/KLogPrefix.h>
#include <sup++/KLogTypes.h>
#include <sup++/KString.h>

#include <atomic>
#include <concepts>
#include <cstdint>
#include <iomanip>
#include <typeinfo>

namespace KSUP {

/// A log of one-line entries. An entry is a chain of pieces: a prefix opens it, texts and numbers
/// follow, EndEntry writes it, with a tab and the UTC time in milliseconds, in one write(2). So
/// lines of several threads never mix, and a killed program loses none that was ended.
///
/// What stands in a piece stays: control characters become blanks, so that a text with a newline
/// cannot pretend to be an entry. A prefix discards an unfinished entry of the same thread. While
/// the log is not open, entries are swallowed.
///
/// Thread   any number may write at once, each its own entries; Open and Close are not to run
///          beside writers
///
///     log << KLogPrefix(name) << "Adding rule -> " << text << KLogTypes::EndEntry;
class SUP_EXPORT KLogBase : public KBase {
  public:
    /// Not open yet. See KBase for the tag.
    explicit KLogBase(const char* classTag);
    ~KLogBase() override;
    KLogBase(const KLogBase&) = delete;
    KLogBase& operator=(const KLogBase&) = delete;

    /// The class's readable name, as KUtil::GetClassNameFromTypeInfo makes it.
    virtual KLogBase& operator<<(const std::type_info& type);
    /// Ends the entry, or says how the next piece is written: see KLogTypes.
    virtual KLogBase& operator<<(KLogTypes::MODIFIER modifier);
    /// Begins an entry; one of this thread that was not finished is discarded.
    virtual KLogBase& operator<<(const KLogPrefix& prefix);
    /// A number in decimal, not the character with this code.
    virtual KLogBase& operator<<(unsigned char number);
    /// Written as a double: what KUtil::NumberToString makes of it.
    virtual KLogBase& operator<<(float number);
    /// With six significant digits, as KUtil::NumberToString writes it.
    virtual KLogBase& operator<<(double number);
    /// In decimal; behind KLogTypes::StatusCode in hexadecimal as well.
    virtual KLogBase& operator<<(unsigned int number);
    /// Its 64 bits as one number without sign, in decimal.
    virtual KLogBase& operator<<(const KQword& number);
    /// A text; control characters become blanks.
    virtual KLogBase& operator<<(const KString& text);
    /// A text; control characters become blanks. Null is an empty text.
    virtual KLogBase& operator<<(const char* text);
    /// The next piece is filled with blanks on the left up to this many bytes.
    virtual KLogBase& operator<<(std::_Setw width);
    /// Two hexadecimal digits in lower case for each byte, nothing between them.
    virtual KLogBase& operator<<(const KHeapPtr<unsigned char>& bytes);
    /// In decimal, a minus in front of what is below 0.
    virtual KLogBase& operator<<(int number);
    /// In decimal; behind KLogTypes::StatusCode in hexadecimal as well.
    virtual KLogBase& operator<<(unsigned long long number);
    /// Its two halves as one number without sign, in decimal.
    virtual KLogBase& operator<<(const _tagQword& number);
    /// NUL-terminated UTF-16, written as UTF-8; half a pair becomes U+FFFD. Null is an empty text.
    virtual KLogBase& operator<<(const unsigned short* text);
    /// What KError::GetSummary answers: one line with code, place and information.
    virtual KLogBase& operator<<(const KError& error);
    /// As {00112233-4455-6677-8899-aabbccddeeff}, in lower case.
    virtual KLogBase& operator<<(const _tagGuid& guid);
    /// As the _tagGuid in it.
    virtual KLogBase& operator<<(const KGuid& guid);

    /// The remaining whole numbers, size_t and long among them.
    template <std::integral T>
    KLogBase& operator<<(T number) {
        if constexpr (std::signed_integral<T>) {
            return WriteSigned(number);
        } else {
            return *this << static_cast<unsigned long long>(number);
        }
    }

    /// Opens the log at the end of `path`; a missing file is made with mode 0640. A symbolic link
    /// at `path` is refused. A log that is open is closed first.
    ///
    /// Throws   KError with errno and the path; the log is then closed
    void Open(const KString& path);
    /// Ends all writing; an unfinished entry of this thread is lost.
    void Close() noexcept;
    /// Whether what is written goes anywhere.
    bool IsOpen() const noexcept { return descriptor >= 0; }
    /// Where the log was opened last; empty before.
    const KString& GetPath() const noexcept { return path; }

  private:
    struct Entry;
    KLogBase& WriteSigned(long long number);
    KLogBase& WriteUnsigned(unsigned long long number);
    KLogBase& WriteReal(double number);
    KLogBase& Append(const char* bytes, std::size_t byteCount);
    Entry* FindEntry();
    void EndEntry(Entry& entry) noexcept;

    /// Tells this log's entries from those of another, and of itself before it was opened again.
    std::uint64_t serial = 0;
    int descriptor = -1;
    std::atomic<bool> lineIsCut{false}; // the disk took a part of the last entry
    KString path;
};

} // namespace KSUP
