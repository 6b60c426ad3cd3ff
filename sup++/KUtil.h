// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KString.h>

#include <typeinfo>

namespace KSUP {

/// Paths, numbers and names that need no object.
///
/// Thread   any; the path map locks itself
class SUP_EXPORT KUtil {
  public:
    KUtil() = delete;

    /// `path` with exactly one `separator` at its end; "" gives the separator alone.
    static KString AppendPathSep(const KString& path, const char* separator);
    /// `path` without separators at its end: "/" gives "".
    static KString RemovePathSep(const KString& path, const char* separator);
    /// What stands behind the last `separator`; the whole path where there is none.
    static KString GetFileFromPath(const KString& path, const char* separator);
    /// `path` without its last component: "/opt/p/lin" gives "/opt/p", "/a" gives "/", "a" gives
    /// "".
    static KString RemoveFileFromPath(const KString& path, const char* separator);

    /// The process-wide table of well-known directories. Entry 2, the source root, begins as the
    /// directory of the running program, entry 19, the log directory, as "/var/log/"; the engine
    /// sets 39 to 60. Entries with a name are macros of that name (see KCustomMacro).
    ///
    /// Returns  the entry; empty when it is not set
    static KString GetPathMap(unsigned id);
    /// Sets an entry of the table, for the whole process.
    static void SetPathMap(unsigned id, const KString& path);
    /// `name` in the directory of an entry.
    static KString GetPathName(unsigned id, const KString& name);

    /// A copy with ASCII letters lowered.
    static KString Lowerify(const KString& text);

    /// The class's readable name and a colon, as it stands before log entries: without "KSUP::",
    /// with any other namespace, as in "KINS::KFileRule:".
    static KString GetClassNameFromTypeInfo(const std::type_info& type);

    /// Ends the running processes of a program: SIGTERM, SIGKILL after `timeoutMs`. A `program`
    /// with a "/" is a path; without one it is the last component of what a process runs. A script
    /// is found by its own name. Process 1, this process and those it descends from are spared.
    /// Nothing to end is success.
    ///
    /// Throws   KError 36 for an empty text; KError with errno when the processes cannot be looked
    ///          through (nothing has ended then), or, with the process as information, when one
    ///          cannot be signalled or is still there 1 s after SIGKILL (the others have ended)
    static void KillProcess(const KString& program, unsigned timeoutMs);

    /// Decimal digits, or with `hex` "0x" and at least 7 digits. A double is written with six
    /// significant digits and no trailing zeros. Defined for unsigned int and double.
    template <class T>
    static KString NumberToString(T value, bool hex);

    /// Reads a number as C++ streams do: leading blanks are skipped, what follows the number is
    /// ignored, "-1" wraps around. "0x" in front or `hex` means base 16. Defined for unsigned int.
    ///
    /// Throws   KError 176 with the text when there is no number or it is too large
    template <class T>
    static T StringToNumber(const KString& text, bool hex);
};

/// With `hex` "0x" and at least seven digits; decimal without.
template <>
SUP_EXPORT KString KUtil::NumberToString<unsigned int>(unsigned int value, bool hex);
/// Six significant digits, as streams write it: 1000000 is "1e+06".
template <>
SUP_EXPORT KString KUtil::NumberToString<double>(double value, bool hex);
/// The StringToNumber that is defined.
template <>
SUP_EXPORT unsigned int KUtil::StringToNumber<unsigned int>(const KString& text, bool hex);

} // namespace KSUP
