// SPDX-License-Identifier: MIT
#include <setup/output/JsonText.h>
#include <setup/output/KEventStream.h>

#include <algorithm>

#include <nlohmann/json.hpp>
#include <sys/files/FileCalls.h>

namespace KSETUP {

namespace {

constexpr auto statusInterval = std::chrono::milliseconds(100);
constexpr unsigned mostBeforeTheEnd = 99; // the record is still to be written

} // namespace

void KEventStream::Start(const std::string& command, const std::string& product, unsigned rules) {
    all = rules;
    Write(OneLine(
        {{"event", "start"},
         {"schema", 1},
         {"command", command},
         {"product", product},
         {"rules", rules}}
    ));
}

void KEventStream::RuleStarted(unsigned number, const std::string& place, const std::string& text) {
    Write(OneLine({{"event", "rule started"}, {"rule", number}, {"place", place}, {"text", text}}));
}

void KEventStream::RuleDone(unsigned number) {
    Write(OneLine({{"event", "rule done"}, {"rule", number}, {"percentage", Advance(number)}}));
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
    Write(OneLine({{"event", "status"}, {"text", text}, {"percentage", reached}}));
}

void KEventStream::Result(const KRunReport& report) {
    Json event{{"event", "result"}};
    event.update(ToJsonObject(report));
    event["percentage"] = report.result == KRunResult::Done ? 100 : percentage;
    Write(OneLine(event));
}

/// Several files of one rule each begin at nothing again; the whole does not.
unsigned KEventStream::Advance(double rulesDone) noexcept {
    const double part = all != 0 ? rulesDone / all : 0;
    const auto reached = static_cast<unsigned>(part * 100);
    percentage = std::max(percentage, std::min(reached, mostBeforeTheEnd));
    return percentage;
}

void KEventStream::Write(const std::string& line) const {
    const std::string whole = line + "\n"; // in one write, where that is possible
    // A reader who is gone stops nothing.
    static_cast<void>(KSYS::WriteAll(output, whole.data(), whole.size()));
}

} // namespace KSETUP
