// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KBase.h>
#include <sup++/KString.h>

#include <boost/shared_ptr.hpp>

namespace KSUP {

class KProfileContent;

/// A file of sections with key and value lines: `[name]`, then `key=value`; a line that begins with
/// ";" or "#" is a comment. docs/script.md tells the whole syntax. Comments, blank lines and the
/// order of lines survive every change, and every change is in the file when the call returns,
/// whole or not at all.
///
/// A copy shares the content (and costs a pointer); each object has its own enumeration. A profile
/// that never opened anything has no content.
///
/// Thread   content locks itself; one object's enumeration belongs to one thread
///
///     KProfile script;
///     script.Open("/kit/install.ini");
///     script.BeginKeyEnum("install", nullptr);
///     while (script.EnumKey(nullptr, false)) { … script.GetKeyName() … }
class SUP_EXPORT KProfile : public KBase {
  public:
    /// No content.
    KProfile();
    /// Bound to `path`; a missing file is empty content, made by the first put (its directories are
    /// not).
    ///
    /// Throws   KError with errno and the path for any other failure
    explicit KProfile(const KString& path);
    /// Shares the content; the enumeration starts anew.
    KProfile(const KProfile& other) noexcept;
    /// Shares the content; the enumeration starts anew.
    KProfile& operator=(const KProfile& other) noexcept;
    ~KProfile() override;

    /// Reads an existing file.
    ///
    /// Throws   KError with errno and the path; the profile then has no content
    void Open(const KString& path);
    /// Makes the file, or empties it, with mode 0644 when new.
    ///
    /// Throws   KError with errno and the path; the profile then has no content
    void Create(const KString& path);

    /// Sets the first line of `key` in `section`, or adds one at the section's end, or the section
    /// at the file's end. Names and values are taken without blanks around them. Without content
    /// nothing happens but a trace message at level 24.
    ///
    /// Throws   KError 36 for a text that would not read back as it was (control characters, a key
    ///          with "=" or that looks like a comment or a section); KError with errno when the
    ///          file cannot be written: it is then as it was, save where the disk failed after the
    ///          change was in place
    void PutString(const KString& section, const KString& key, const KString& value);

    /// PutString of two keys with one write of the file, so that nobody meets it with one of them: a
    /// version and its build number. In the order given, where they are new.
    ///
    /// Throws   as PutString
    void PutStrings(
        const KString& section,
        const KString& firstKey,
        const KString& firstValue,
        const KString& secondKey,
        const KString& secondValue
    );

    /// PutString with the number's text. Defined for unsigned int.
    ///
    /// Throws   as PutString, and KError 36 without content
    template <class T>
    void PutNumber(const KString& section, const KString& key, T value, bool hex);

    /// Removes the line of the last successful EnumKey if it is one of `key`, else the first line
    /// of `key`; where others have removed that line meanwhile, nothing. A missing key is no error.
    /// Every walk goes on with its next line. A file that was deleted meanwhile is not made again.
    ///
    /// Throws   KError with errno when the file cannot be written
    void DeleteKey(const KString& section, const KString& key);

    /// Options of the saved command line named `section.key` then answer GetNumber before the file
    /// does. Null, the default, means that they do not.
    ///
    /// Lifetime `context` is kept as a pointer: pass a string literal
    void SetCommandLineContext(const char* context) noexcept { commandLineContext = context; }

    /// Whether something was opened, created or bound.
    bool HasContent() const noexcept { return content != nullptr; }

    /// The value of the first line of `key`, without blanks around it, or `defaultValue`.
    KString
    GetString(const KString& section, const KString& key, const KString& defaultValue) const;

    /// The value as a number; `defaultValue` when there is none or it is not a number. Defined for
    /// unsigned int.
    template <class T>
    T GetNumber(const KString& section, const KString& key, T defaultValue) const;

    /// Begins to walk the key lines of a section, in file order, duplicates included, also where
    /// the section stands in several pieces. Changes of the file, by this object or by others,
    /// leave a walk in its section, and each key that stays is met once; what others added is met
    /// at the end. A `cursor` that is not null holds the position instead of this object:
    /// behind each key, the number of its line in the file as it was first read, from 1, or a
    /// larger number for a line that came later.
    ///
    /// Lifetime a position means nothing to a profile that opened another file since
    void BeginKeyEnum(const KString& section, unsigned* cursor) const;
    /// Steps to the next key line, false at the end.
    ///
    /// Throws   KError 36 when `reserved` is not false
    bool EnumKey(unsigned* cursor, bool reserved) const;
    /// The line of the last successful EnumKey.
    const KString& GetKeyName() const noexcept { return keyName; }
    /// The value on that line, without blanks around it.
    const KString& GetKeyValue() const noexcept { return keyValue; }

  private:
    boost::shared_ptr<KProfileContent> content;
    const char* commandLineContext = nullptr;
    mutable KString enumSection;
    mutable unsigned enumPosition = 0;
    mutable unsigned linePosition = 0; // of keyName and keyValue; 0 is none
    mutable KString keyName;
    mutable KString keyValue;
};

/// The PutNumber that is defined.
template <>
SUP_EXPORT void KProfile::PutNumber<unsigned int>(
    const KString& section, const KString& key, unsigned int value, bool hex
);
/// The GetNumber that is defined.
template <>
SUP_EXPORT unsigned int KProfile::GetNumber<unsigned int>(
    const KString& section, const KString& key, unsigned int defaultValue
) const;

} // namespace KSUP
