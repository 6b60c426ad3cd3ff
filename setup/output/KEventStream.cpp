// SPDX-License-Identifier: MIT
#include <setup/output/KEventStream.h>
#include <setup/output/KJsonObject.h>

#include <algorithm>

#include <sys/files/FileCalls.h>

namespace KSETUP {

namespace {

constexpr auto statusInterval = std::chrono::milliseconds(100);
constexpr unsigned mostBeforeTheEnd = 99; // the record is still to be written

KJsonObject EventOf(const char* name) {
    return KJsonObject().Put("event", name);
}

} // namespace

void KEventStream::Start(const std::string& command, const std::string& product, unsigned rules) {
    all = rules;
    Write(EventOf("start")
              .Put("schema", 1)
              .Put("command", command)
              .Put("product", product)
              .Put("rules", rules));
}

void KEventStream::RuleStarted(unsigned number, const std::string& place, const std::string& text) {
    Write(EventOf("rule started").Put("rule", number).Put("place", place).Put("text", text));
}

void KEventStream::RuleDone(unsigned number) {
    Write(EventOf("rule done").Put("rule", number).Put("percentage", Advance(number)));
}

void KEventStream::Status(unsigned done, const std::string& text, double part) {
    const Clock::time_point now = Clock::now();
    const unsigned reached = Advance(done + std::clamp(part, 0.0, 1.0));
    const bool isNews = text != lastText || reached != lastPercentage;
    if (!isNews || now - lastStatus < statusInterval) {
        return;
    }
    lastStatus = now;
    lastText = text;
    lastPercentage = reached;
    Write(EventOf("status").Put("text", text).Put("percentage", reached));
}

void KEventStream::Result(const KRunReport& report) {
    Write(EventOf("result")
              .PutAll(ToJsonObject(report))
              .Put("percentage", report.result == KRunResult::Done ? 100 : percentage));
}

/// Several files of one rule each begin at nothing again; the whole does not.
unsigned KEventStream::Advance(double rulesDone) noexcept {
    const double part = all != 0 ? rulesDone / all : 0;
    const auto reached = static_cast<unsigned>(part * 100);
    percentage = std::max(percentage, std::min(reached, mostBeforeTheEnd));
    return percentage;
}

void KEventStream::Write(const KJsonObject& event) const {
    const std::string whole = event.ToText() + "\n"; // in one write, where that is possible
    // A reader who is gone stops nothing.
    static_cast<void>(KSYS::WriteAll(output, whole.data(), whole.size()));
}

} // namespace KSETUP
