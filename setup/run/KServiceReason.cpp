// SPDX-License-Identifier: MIT
#include <setup/run/KServiceReason.h>
#include <sup++/KErrorCode.h>
#include <sup++/SvcService.h>
#include <sup++/SvcTrace.h>

namespace KSETUP {

KServiceReason::KServiceReason() {
    static_cast<void>(SvcSetTraceHook(&KServiceReason::Listen, this)); // cannot fail
}

KServiceReason::~KServiceReason() {
    static_cast<void>(SvcSetTraceHook(nullptr, nullptr));
}

std::string KServiceReason::Get() const {
    const std::lock_guard hold(guard);
    return words;
}

void KServiceReason::Listen(void* reason, TRACE_MESSAGE level, const char*) {
    if (level == KSUP::TraceLevel::setup) {
        auto* self = static_cast<KServiceReason*>(reason);
        const std::lock_guard hold(self->guard);
        self->words = SvcGetServiceErrorText();
    }
}

} // namespace KSETUP
