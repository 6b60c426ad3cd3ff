// SPDX-License-Identifier: MIT
#include "StatusRecorder.h"

#include <algorithm>
#include <ostream>
#include <sstream>
#include <utility>

namespace KTEST {

namespace {

std::string LineOf(const StatusRecorder::Status& status) {
    std::ostringstream line;
    if (status.value == KINS::noPercentage) {
        line << '-';
    } else {
        line << status.value;
    }
    line << ' ' << status.text;
    return line.str();
}

} // namespace

KINS::StatusCallback StatusRecorder::Callback() {
    return [this](const KSUP::KString& text, double value) { Record(text, value); };
}

void StatusRecorder::At(std::size_t number, std::function<void()> action) {
    const std::lock_guard hold(guard);
    actions[number] = std::move(action);
}

void StatusRecorder::Record(const KSUP::KString& text, double value) {
    std::function<void()> action;
    {
        const std::lock_guard hold(guard);
        statuses.push_back({text.c_str(), value});
        const std::thread::id caller = std::this_thread::get_id();
        if (std::find(threads.begin(), threads.end(), caller) == threads.end()) {
            threads.push_back(caller);
        }
        if (const auto found = actions.find(statuses.size()); found != actions.end()) {
            action = found->second;
        }
    }
    // Outside the lock: an action may read this recorder, or wait for a thread that does.
    if (action) {
        action();
    }
}

std::vector<StatusRecorder::Status> StatusRecorder::All() const {
    const std::lock_guard hold(guard);
    return statuses;
}

std::vector<std::string> StatusRecorder::Lines() const {
    std::vector<std::string> lines;
    for (const Status& status : All()) {
        lines.push_back(LineOf(status));
    }
    return lines;
}

std::vector<std::thread::id> StatusRecorder::Threads() const {
    const std::lock_guard hold(guard);
    return threads;
}

void PrintTo(const StatusRecorder::Status& status, std::ostream* out) {
    *out << '"' << LineOf(status) << '"';
}

} // namespace KTEST
