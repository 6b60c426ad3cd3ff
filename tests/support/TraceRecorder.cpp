// SPDX-License-Identifier: MIT
#include "TraceRecorder.h"

#include <sup++/SvcTrace.h>

namespace KTEST {

TraceRecorder::TraceRecorder() {
    SvcSetTraceHook(&TraceRecorder::Record, this);
}

TraceRecorder::~TraceRecorder() {
    SvcSetTraceHook(nullptr, nullptr);
}

void TraceRecorder::Clear() {
    const std::lock_guard hold(guard);
    messages.clear();
}

std::vector<TraceRecorder::Message> TraceRecorder::Messages() const {
    const std::lock_guard hold(guard);
    return messages;
}

std::vector<std::string> TraceRecorder::Texts(TRACE_MESSAGE level) const {
    std::vector<std::string> texts;
    for (const Message& message : Messages()) {
        if (message.level == level) {
            texts.push_back(message.text);
        }
    }
    return texts;
}

void TraceRecorder::Record(void* recorder, TRACE_MESSAGE level, const char* text) {
    auto* self = static_cast<TraceRecorder*>(recorder);
    const std::lock_guard hold(self->guard);
    self->messages.push_back({level, text});
}

} // namespace KTEST
