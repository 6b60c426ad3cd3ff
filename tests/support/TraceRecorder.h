// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Msg.h>

#include <mutex>
#include <string>
#include <vector>

namespace KTEST {

/// Sees every trace message of the process from its construction to its end, from all threads.
///
/// There is one trace hook in a process, so a test has one recorder at a time.
///
///     TraceRecorder trace;
///     …
///     EXPECT_THAT(trace.Texts(24), ElementsAre(HasSubstr("176")));
class TraceRecorder {
  public:
    struct Message {
        TRACE_MESSAGE level;
        std::string text;

        friend bool operator==(const Message&, const Message&) = default;
    };

    TraceRecorder();
    ~TraceRecorder();
    TraceRecorder(const TraceRecorder&) = delete;
    TraceRecorder& operator=(const TraceRecorder&) = delete;

    void Clear();

    /// In the order in which they were said.
    std::vector<Message> Messages() const;
    /// The texts of one level.
    std::vector<std::string> Texts(TRACE_MESSAGE level) const;

  private:
    static void Record(void* recorder, TRACE_MESSAGE level, const char* text);

    mutable std::mutex guard;
    std::vector<Message> messages; // guarded by guard
};

} // namespace KTEST
