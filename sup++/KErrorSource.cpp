// SPDX-License-Identifier: MIT
#include <sup++/KError.h>
#include <sup++/KErrorSource.h>

#include <cerrno>
#include <string>
#include <system_error>

#include <sys/files/PathWalk.h>

namespace KSUP {

namespace {

KErrorKind KindOf(unsigned code) noexcept {
    switch (code) {
    case ErrorCode::malformedRule:
        return KErrorKind::Rule;
    case ErrorCode::cancelled:
        return KErrorKind::Cancelled;
    case ErrorCode::processFailed:
        return KErrorKind::Process;
    default:
        return code >= ErrorCode::serviceUnknown && code <= ErrorCode::serviceManagerLost
                   ? KErrorKind::Service
                   : KErrorKind::Own;
    }
}

/// What a code says that is raised without information.
const char* WordsOf(unsigned code) noexcept {
    switch (code) {
    case ErrorCode::cancelled:
        return "the run was stopped on request";
    case ErrorCode::notSuperuser:
        return "only root can install and remove";
    case ErrorCode::serviceFailed:
        return "systemd or the service refused";
    default:
        return "";
    }
}

} // namespace

void KErrorSource::Raise(
    TRACE_MESSAGE level, unsigned code, const KVariant& info, unsigned line, const char* function
) const {
    KErrorDetail detail;
    detail.kind = KindOf(code);
    detail.reason = WordsOf(code);
    RaiseAs(detail, level, code, info, line, function);
}

void KErrorSource::RaiseAs(
    const KErrorDetail& detail,
    TRACE_MESSAGE level,
    unsigned code,
    const KVariant& info,
    unsigned line,
    const char* function
) const {
    KError error(level, code, 0, line, file, function, nullptr);
    error.SetDetail(detail);
    if (info.GetType() != static_cast<unsigned>(KVariant::Type::Empty)) {
        error.SetInfo(info);
    }
    Msg(level, "%s", error.GetSummary().c_str());
    throw KError(error);
}

void KErrorSource::RaiseSystem(
    unsigned errorNumber, const KString& path, unsigned line, const char* function
) const {
    RaiseSystem(errorNumber, KOperation::None, path, line, function);
}

void KErrorSource::RaiseSystem(
    unsigned errorNumber,
    KOperation operation,
    const KString& path,
    unsigned line,
    const char* function
) const {
    // Of a link that was refused the system's own words would send their reader looking for a
    // circle.
    const bool isRefusal = errorNumber == ELOOP && !KSYS::IsLoop(path.c_str());
    const KString reason =
        isRefusal ? std::string("a symbolic link on the way that others than root could have laid")
                  : std::generic_category().message(static_cast<int>(errorNumber));
    const KErrorDetail detail{KErrorKind::System, operation, path, reason};
    RaiseAs(
        detail, TraceLevel::support, errorNumber, KVariant(path + ": " + reason), line, function
    );
}

} // namespace KSUP
