// SPDX-License-Identifier: MIT
#include <sup++/KErrorCode.h>
#include <sup++/Msg.h>
#include <sup++/SvcTrace.h>
#include <sup++/ThreadSafety.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

#include <sys/KAnnotatedMutex.h>
#include <sys/NeverDestroyed.h>

namespace {

struct Hook {
    /// Recursive: a hook may say messages itself, or take itself off.
    KSYS::KAnnotatedMutex<std::recursive_mutex> guard;
    SvcTraceHook function SUP_GUARDED_BY(guard) = nullptr;
    void* context SUP_GUARDED_BY(guard) = nullptr;
};

Hook& TheHook() noexcept {
    static KSYS::NeverDestroyed<Hook> hook;
    return hook.Get();
}

__attribute__((format(printf, 1, 0))) std::string
Format(const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const int bytes = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(bytes > 0 ? static_cast<std::size_t>(bytes) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

void CallHook(TRACE_MESSAGE level, const char* text) {
    Hook& hook = TheHook();
    const KSYS::KScopedLock hold(hook.guard);
    if (hook.function != nullptr) {
        hook.function(hook.context, level, text);
    }
}

} // namespace

void Msg(TRACE_MESSAGE level, const char* format, ...) noexcept {
    const int savedErrno = errno;
    std::va_list arguments;
    va_start(arguments, format);
    try {
        const std::string text = Format(format, arguments);
        SvcGetGlobalLogger()->Write(level, text.c_str());
        CallHook(level, text.c_str());
    } catch (...) { // a message is never worth an error of its own
    }
    va_end(arguments);
    errno = savedErrno;
}

unsigned SvcSetTraceHook(SvcTraceHook hook, void* context) noexcept {
    Hook& registered = TheHook();
    const KSYS::KScopedLock hold(registered.guard);
    registered.function = hook;
    registered.context = context;
    return 0;
}

KSUP::KTraceLogger* SvcGetGlobalLogger() noexcept {
    static KSYS::NeverDestroyed<KSUP::KTraceLogger> logger;
    return &logger.Get();
}

const char* SvcMapTraceMask(TRACE_MESSAGE level) noexcept {
    switch (level) {
    case KSUP::TraceLevel::support:
        return "support:";
    case KSUP::TraceLevel::rule:
        return "rule:";
    case KSUP::TraceLevel::setup:
        return "setup:";
    default:
        return "trace:";
    }
}
