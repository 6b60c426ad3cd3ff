// SPDX-License-Identifier: MIT
#include <sup++/KError.h>
#include <sup++/KErrorSource.h>

#include <cerrno>
#include <string>
#include <system_error>

#include <sys/files/PathWalk.h>

namespace KSUP {

void KErrorSource::Raise(
    TRACE_MESSAGE level, unsigned code, const KVariant& info, unsigned line, const char* function
) const {
    KError error(level, code, 0, line, file, function, nullptr);
    if (info.GetType() != static_cast<unsigned>(KVariant::Type::Empty)) {
        error.SetInfo(info);
    }
    Msg(level, "%s", error.GetSummary().c_str());
    throw KError(error);
}

void KErrorSource::RaiseSystem(
    unsigned errorNumber, const KString& path, unsigned line, const char* function
) const {
    // Of a link that was refused the system's own words would send their reader looking for a
    // circle.
    const bool isRefusal = errorNumber == ELOOP && !KSYS::IsLoop(path.c_str());
    const KString reason =
        isRefusal ? std::string("a symbolic link on the way that others than root could have laid")
                  : std::generic_category().message(static_cast<int>(errorNumber));
    Raise(TraceLevel::support, errorNumber, KVariant(path + ": " + reason), line, function);
}

} // namespace KSUP
