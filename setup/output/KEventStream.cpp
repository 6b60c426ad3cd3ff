// SPDX-License-Identifier: MIT
#include <setup/output/KEventStream.h>
#include <setup/output/KJsonObject.h>

#include <sys/files/FileCalls.h>

namespace KSETUP {

namespace {

constexpr auto statusInterval = std::chrono::milliseconds(100);

KJsonObject EventOf(const char* name) {
    return KJsonObject().Put("event", name);
}

} // namespace

void KEventStream::Start(const std::string& command, const std::string& product, unsigned rules) {
    Write(EventOf("start")
              .Put("schema", 1)
              .Put("command", command)
              .Put("product", product)
              .Put("rules", rules));
}

void KEventStream::RuleStarted(unsigned number, const std::string& place, const KText& text) {
    Write(EventOf("rule started").Put("rule", number).Put("place", place).Put("text", text));
}

void KEventStream::RuleDone(unsigned number, unsigned percent) {
    percentage = percent;
    Write(EventOf("rule done").Put("rule", number).Put("percentage", percent));
}

void KEventStream::Status(const KText& text, unsigned percent) {
    const Clock::time_point now = Clock::now();
    const bool isNews = !(text == lastText) || percent != lastPercentage;
    if (!isNews || now - lastStatus < statusInterval) {
        return;
    }
    lastStatus = now;
    lastText = text;
    lastPercentage = percent;
    percentage = percent;
    Write(EventOf("status").Put("text", text).Put("percentage", percent));
}

void KEventStream::Result(const KRunReport& report) {
    Write(EventOf("result")
              .PutAll(ToJsonObject(report))
              .Put("percentage", report.result == KRunResult::Done ? 100 : percentage));
}

void KEventStream::Write(const KJsonObject& event) const {
    const std::string whole = event.ToText() + "\n"; // in one write, where that is possible
    // A reader who is gone stops nothing.
    static_cast<void>(KSYS::WriteAll(output, whole.data(), whole.size()));
}

} // namespace KSETUP
