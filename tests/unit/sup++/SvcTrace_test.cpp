// SPDX-License-Identifier: MIT
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/SvcTrace.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <thread>

namespace KTEST {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class SvcTraceTest : public testing::Test {
  protected:
    ~SvcTraceTest() override {
        SvcSetTraceHook(nullptr, nullptr);
        SvcGetGlobalLogger()->UseNothing();
    }
    static void Record(void* context, TRACE_MESSAGE level, const char* text) {
        static_cast<std::vector<std::string>*>(context)->push_back(
            std::to_string(level) + " " + text
        );
    }
    std::vector<std::string> LogLines() const {
        std::vector<std::string> lines(1);
        for (const char byte : tree.Read("trace.log")) {
            if (byte == '\n') {
                lines.emplace_back();
            } else {
                lines.back() += byte;
            }
        }
        EXPECT_EQ(lines.back(), "") << "the last line is ended";
        lines.pop_back();
        return lines;
    }
    void UseLog() { SvcGetGlobalLogger()->UseFile(tree.Path("trace.log")); }

    TemporaryTree tree;
    std::vector<std::string> seen;
};

// The hook

TEST_F(SvcTraceTest, AHookSeesMessagesUntilItIsTakenAway) {
    EXPECT_EQ(SvcSetTraceHook(&Record, &seen), 0U);
    Msg(48, "one");
    EXPECT_EQ(SvcSetTraceHook(nullptr, nullptr), 0U);
    Msg(48, "two");
    EXPECT_THAT(seen, ElementsAre("48 one"));
}

TEST_F(SvcTraceTest, TheLastHookSetIsTheOnlyOne) {
    std::vector<std::string> others;
    SvcSetTraceHook(&Record, &others);
    SvcSetTraceHook(&Record, &seen);
    Msg(48, "one");
    EXPECT_THAT(others, IsEmpty());
    EXPECT_THAT(seen, ElementsAre("48 one"));
}

TEST_F(SvcTraceTest, WhatAHookThrowsIsDropped) {
    SvcSetTraceHook(
        [](void*, TRACE_MESSAGE, const char*) { throw std::runtime_error("x"); }, nullptr
    );
    Msg(48, "one");
    SvcSetTraceHook(&Record, &seen);
    Msg(48, "two");
    EXPECT_THAT(seen, ElementsAre("48 two"));
}

TEST_F(SvcTraceTest, AHookMaySayMessagesItself) {
    static int depth;
    depth = 0;
    SvcSetTraceHook(
        [](void* context, TRACE_MESSAGE level, const char* text) {
            Record(context, level, text);
            if (++depth == 1) {
                Msg(24, "from the hook");
            }
        },
        &seen
    );
    Msg(48, "one");
    EXPECT_THAT(seen, ElementsAre("48 one", "24 from the hook"));
}

TEST_F(SvcTraceTest, AHookMayTakeItselfAway) {
    SvcSetTraceHook(
        [](void* context, TRACE_MESSAGE level, const char* text) {
            SvcSetTraceHook(nullptr, nullptr);
            Record(context, level, text);
        },
        &seen
    );
    Msg(48, "one");
    Msg(48, "two");
    EXPECT_THAT(seen, ElementsAre("48 one"));
}

TEST_F(SvcTraceTest, AHookIsCalledOnOneThreadAtATime) {
    struct Watch {
        std::atomic<int> inside{0};
        std::atomic<bool> twoAtOnce{false};
    } watch;
    SvcSetTraceHook(
        [](void* context, TRACE_MESSAGE, const char*) {
            auto* at = static_cast<Watch*>(context);
            at->twoAtOnce = at->twoAtOnce || ++at->inside > 1;
            std::this_thread::yield();
            --at->inside;
        },
        &watch
    );
    std::vector<std::thread> threads;
    for (int writer = 0; writer < 4; ++writer) {
        threads.emplace_back([] {
            for (int message = 0; message < 200; ++message) {
                Msg(24, "x");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(watch.twoAtOnce);
}

TEST_F(SvcTraceTest, AHookThatWasTakenAwayDoesNotRunAgain) {
    std::atomic<bool> ended{false};
    std::thread writer([&] {
        while (!ended) {
            Msg(24, "x");
        }
    });
    for (int round = 0; round < 200; ++round) {
        auto context = std::make_unique<int>(0);
        SvcSetTraceHook(
            [](void* counter, TRACE_MESSAGE, const char*) { ++*static_cast<int*>(counter); },
            context.get()
        );
        SvcSetTraceHook(nullptr, nullptr);
        const int count = *context;
        std::this_thread::yield();
        EXPECT_EQ(*context, count);
    }
    ended = true;
    writer.join();
}

// The words

TEST_F(SvcTraceTest, LevelsHaveTheirWords) {
    EXPECT_STREQ(SvcMapTraceMask(24), "support:");
    EXPECT_STREQ(SvcMapTraceMask(48), "rule:");
    EXPECT_STREQ(SvcMapTraceMask(400), "setup:");
    for (const TRACE_MESSAGE other : {0U, 1U, 25U, 401U, 4294967295U}) {
        EXPECT_STREQ(SvcMapTraceMask(other), "trace:") << other;
    }
}

// The logger

TEST_F(SvcTraceTest, ThereIsOneLogger) {
    ASSERT_NE(SvcGetGlobalLogger(), nullptr);
    EXPECT_EQ(SvcGetGlobalLogger(), SvcGetGlobalLogger());
}

TEST_F(SvcTraceTest, MessagesGoToAFileOneLineEach) {
    UseLog();
    Msg(48, "one");
    Msg(24, "two\nlines\r\x1b");
    Msg(400, "three");
    const std::vector<std::string> lines = LogLines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[0], HasSubstr("one"));
    EXPECT_THAT(lines[1], HasSubstr("two lines"));
    EXPECT_THAT(lines[2], HasSubstr("three"));
}

TEST_F(SvcTraceTest, TheFileIsMadeForItsOwnerAndGroup) {
    const UmaskGuard mask(022);
    UseLog();
    EXPECT_EQ(tree.Mode("trace.log"), 0640U);
}

TEST_F(SvcTraceTest, AnExistingFileIsContinued) {
    tree.Write("trace.log", "before\n");
    UseLog();
    Msg(48, "one");
    SvcGetGlobalLogger()->UseNothing();
    UseLog();
    Msg(48, "two");
    const std::vector<std::string> lines = LogLines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "before");
    EXPECT_THAT(lines[2], HasSubstr("two"));
}

TEST_F(SvcTraceTest, AFileThatCannotBeOpenedLeavesMessagesWhereTheyWent) {
    UseLog();
    tree.Directory("d");
    const HangGuard guard;
    for (const char* name : {"no/trace.log", "d"}) {
        const std::string path = tree.Path(name);
        const KSUP::KError error = ErrorOf([&] { SvcGetGlobalLogger()->UseFile(path); });
        EXPECT_THAT(error.GetInfo().GetString().c_str(), HasSubstr(path));
    }
    EXPECT_EQ(CodeOf([&] { SvcGetGlobalLogger()->UseFile(tree.Path("no/x")); }), unsigned{ENOENT});
    Msg(48, "still here");
    EXPECT_THAT(LogLines().back(), HasSubstr("still here"));
}

TEST_F(SvcTraceTest, MessagesAreDroppedWhereTheyGoNowhere) {
    UseLog();
    SvcGetGlobalLogger()->UseNothing();
    Msg(48, "dropped");
    EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(SvcTraceTest, MessagesGoToStandardError) {
    SvcGetGlobalLogger()->UseStandardError();
    testing::internal::CaptureStderr();
    Msg(48, "on\nstandard error");
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_THAT(text, HasSubstr("on standard error"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
}

TEST_F(SvcTraceTest, AHookSeesWhatTheLoggerDrops) {
    SvcGetGlobalLogger()->UseNothing();
    SvcSetTraceHook(&Record, &seen);
    Msg(48, "one");
    EXPECT_THAT(seen, testing::SizeIs(1));
}

TEST_F(SvcTraceTest, LinesOfSeveralThreadsDoNotMix) {
    UseLog();
    std::vector<std::thread> threads;
    for (unsigned writer = 0; writer < 4; ++writer) {
        threads.emplace_back([writer] {
            const std::string text(300, static_cast<char>('a' + writer));
            for (int message = 0; message < 100; ++message) {
                Msg(48, "<%s>", text.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> lines = LogLines();
    EXPECT_EQ(lines.size(), 400U);
    for (const std::string& line : lines) {
        const std::size_t start = line.find('<') + 1;
        ASSERT_EQ(line.substr(start, 300), std::string(300, line[start]));
    }
}

TEST_F(SvcTraceTest, TheTargetMayChangeWhileMessagesAreSaid) {
    std::thread writer([] {
        for (int message = 0; message < 500; ++message) {
            Msg(48, "x");
        }
    });
    const std::vector<int> before = OpenDescriptors();
    for (int round = 0; round < 100; ++round) {
        UseLog();
        SvcGetGlobalLogger()->UseNothing();
    }
    writer.join();
    EXPECT_EQ(OpenDescriptors(), before);
}

} // namespace
} // namespace KTEST
