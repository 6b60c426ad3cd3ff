// SPDX-License-Identifier: MIT
#include "../../support/TraceRecorder.h"
#include "Common.h"

#include <sup++/Msg.h>

#include <cerrno>
#include <thread>
#include <type_traits>

namespace KTEST {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MsgTest : public testing::Test {
  protected:
    TraceRecorder trace;
};

TEST_F(MsgTest, SaysALevelAndAFormattedText) {
    Msg(48, "%s: %u of %d%%", "rule", 7U, -3);
    EXPECT_THAT(trace.Messages(), ElementsAre(TraceRecorder::Message{48, "rule: 7 of -3%"}));
}

TEST_F(MsgTest, SaysATextOfAnyLength) {
    for (const std::size_t size : {0U, 255U, 256U, 1023U, 1024U, 4096U, 1000000U}) {
        trace.Clear();
        const std::string text(size, 'x');
        Msg(24, "%s", text.c_str());
        EXPECT_THAT(trace.Texts(24), ElementsAre(text)) << size;
    }
}

TEST_F(MsgTest, SaysTheTextAsItStands) {
    Msg(24, "%s", "100%s \n\xff");
    EXPECT_THAT(trace.Texts(24), ElementsAre("100%s \n\xff"));
}

TEST_F(MsgTest, TakesAnyLevel) {
    Msg(0, "a");
    Msg(4294967295U, "b");
    EXPECT_THAT(trace.Texts(0), ElementsAre("a"));
    EXPECT_THAT(trace.Texts(4294967295U), ElementsAre("b"));
}

TEST_F(MsgTest, LeavesErrnoAlone) {
    errno = EXDEV;
    Msg(24, "%s", "text");
    EXPECT_EQ(errno, EXDEV);
}

TEST_F(MsgTest, DoesNotThrow) {
    EXPECT_TRUE(noexcept(Msg(24, "x")));
    EXPECT_TRUE((std::is_same_v<TRACE_MESSAGE, unsigned int>));
    EXPECT_TRUE((std::is_same_v<KSUP::TRACE_MESSAGE, ::TRACE_MESSAGE>));
}

TEST_F(MsgTest, SaysEveryMessageOfEveryThreadWhole) {
    std::vector<std::thread> threads;
    for (unsigned writer = 0; writer < 4; ++writer) {
        threads.emplace_back([writer] {
            for (int message = 0; message < 250; ++message) {
                Msg(writer, "%s", std::string(50, static_cast<char>('a' + writer)).c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(trace.Messages(), testing::SizeIs(1000));
    EXPECT_THAT(trace.Texts(2), testing::Each(std::string(50, 'c')));
    EXPECT_THAT(trace.Texts(2), testing::SizeIs(250));
}

} // namespace
} // namespace KTEST
