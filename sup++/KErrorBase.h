// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KBase.h>
#include <sup++/KString.h>
#include <sup++/KVariant.h>
#include <sup++/Msg.h>

#include <boost/shared_ptr.hpp>

namespace KSUP {

class KDriver; ///< Reserved: every error carries a null pointer to one.

/// What every error carries: level, code, the place that raised it, and information where there is
/// any. Thrown by value as KError; never thrown itself.
///
/// A copy shares its contents, so that copying, which the language does while it throws, never
/// throws itself.
///
/// Thread   as a value
class SUP_EXPORT KErrorBase : public KBase {
  public:
    /// `file` and `function` are copied.
    KErrorBase(
        TRACE_MESSAGE level,
        unsigned code,
        unsigned subCode,
        unsigned line,
        const char* file,
        const char* function,
        const KDriver* driver
    );
    ~KErrorBase() override;
    KErrorBase(const KErrorBase&) noexcept;
    KErrorBase& operator=(const KErrorBase&) noexcept;

    /// Attaches one value of information; copies made before keep theirs.
    void SetInfo(const KVariant& info);

    TRACE_MESSAGE GetLevel() const noexcept;
    /// A system call's errno, a failed call's status or one of the codes in KErrorCode.h.
    unsigned GetCode() const noexcept;
    unsigned GetSubCode() const noexcept;
    unsigned GetLine() const noexcept;
    /// The source, such as "ins/KFileRule".
    const char* GetFile() const noexcept;
    const char* GetFunction() const noexcept;
    const KDriver* GetDriver() const noexcept;
    /// Empty when nothing was attached.
    KVariant GetInfo() const;
    bool HasInfo() const noexcept;

    /// One line with code, place and information; control characters become blanks.
    KString GetSummary() const;

  private:
    struct Contents;
    boost::shared_ptr<const Contents> contents; // never null, never changed once shared
};

} // namespace KSUP
