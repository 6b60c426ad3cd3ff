// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KBase.h>
#include <sup++/KErrorKind.h>
#include <sup++/KOperation.h>
#include <sup++/KString.h>
#include <sup++/KVariant.h>
#include <sup++/Msg.h>

#include <boost/shared_ptr.hpp>

namespace KSUP {

class KDriver; ///< Reserved: every error carries a null pointer to one.

/// What an error tells beside its code, for programs that decide by it.
struct KErrorDetail {
    KErrorKind kind = KErrorKind::Own;       ///< what the code means
    KOperation operation = KOperation::None; ///< what failed at the path
    KString path;   ///< of the file, directory or link that it was about; empty without one
    KString reason; ///< why, in the words of whoever refused; empty when nobody gave any
};

/// What every error carries: level, code, its kind, the place that raised it, and information where
/// there is any. Thrown by value as KError; never thrown itself.
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
    /// Shares the contents and so never throws; SetInfo on one does not change the other.
    KErrorBase(const KErrorBase&) noexcept;
    /// As the copy constructor; what GetFile and GetFunction gave before may be gone.
    KErrorBase& operator=(const KErrorBase&) noexcept;

    /// Attaches one value of information; copies made before keep theirs.
    void SetInfo(const KVariant& info);
    /// Says what kind of error it is and what it was about; copies made before keep theirs.
    void SetDetail(const KErrorDetail& detail);

    /// The trace level at which it was raised (KErrorCode.h).
    TRACE_MESSAGE GetLevel() const noexcept;
    /// A system call's errno, a failed call's status or one of the codes in KErrorCode.h; GetKind
    /// says which.
    unsigned GetCode() const noexcept;
    /// What kind of failure it is; Own unless whoever raised it said more.
    KErrorKind GetKind() const noexcept;
    /// Whether the code is the system's errno.
    bool IsSystemError() const noexcept { return GetKind() == KErrorKind::System; }
    /// What was tried on GetPath; None where that is not known.
    KOperation GetOperation() const noexcept;
    /// The path that it was about; empty without one.
    KString GetPath() const;
    /// Why, in the words of whoever refused: the system, a service, a process. Empty without any.
    KString GetReason() const;
    /// A code within the code; 0 so far.
    unsigned GetSubCode() const noexcept;
    /// The line of GetFile at which it was raised.
    unsigned GetLine() const noexcept;
    /// Where it was raised, without ending: "ins/KFileRule". Never null.
    const char* GetFile() const noexcept;
    /// Where it was raised, without its class: "DeleteFile". Never null.
    const char* GetFunction() const noexcept;
    /// Null: reserved.
    const KDriver* GetDriver() const noexcept;
    /// Empty when nothing was attached.
    KVariant GetInfo() const;
    /// Tells "nothing attached" from an empty text, which GetInfo alone does not show.
    bool HasInfo() const noexcept;

    /// One line with code, place and information; control characters become blanks.
    KString GetSummary() const;

  private:
    struct Contents;
    boost::shared_ptr<const Contents> contents; // never null, never changed once shared
};

} // namespace KSUP
