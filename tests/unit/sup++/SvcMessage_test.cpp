// SPDX-License-Identifier: MIT
#include "Common.h"

#include <sup++/SvcMessage.h>

#include <thread>

namespace KTEST {
namespace {

// Every test has a catalogue of its own: what one has loaded stays for the life of the process.
constexpr unsigned Id(unsigned catalogue, unsigned message) {
    return catalogue << 16U | message;
}

class SvcMessageTest : public testing::Test {
  protected:
    static std::string Text(unsigned catalogue, unsigned message) {
        const char* text = SvcGetMessagePtr(Id(catalogue, message));
        EXPECT_NE(text, nullptr);
        return text != nullptr ? text : "(null)";
    }
};

TEST_F(SvcMessageTest, GivesTheTextsOfALoadedCatalogue) {
    static const SvcBuiltInMessage messages[] = {
        {Id(201, 1), "one"}, {Id(201, 65535), "last"}, {Id(201, 2), "two"}, {0, nullptr}};
    SvcSetBuiltInMessages(201, messages);
    EXPECT_EQ(SvcLoadMessage(201, "xxxtest201"), 0U);
    EXPECT_EQ(Text(201, 1), "one");
    EXPECT_EQ(Text(201, 2), "two");
    EXPECT_EQ(Text(201, 65535), "last");
}

TEST_F(SvcMessageTest, GivesAnEmptyTextForWhatItDoesNotKnow) {
    static const SvcBuiltInMessage messages[] = {{Id(202, 1), "one"}, {0, nullptr}};
    SvcSetBuiltInMessages(202, messages);
    EXPECT_EQ(SvcLoadMessage(202, "xxxtest202"), 0U);
    EXPECT_EQ(Text(202, 3), "");
    EXPECT_EQ(Text(203, 1), "");
    EXPECT_STREQ(SvcGetMessagePtr(0), "");
    EXPECT_STREQ(SvcGetMessagePtr(4294967295U), "");
}

TEST_F(SvcMessageTest, GivesNothingOfACatalogueThatIsNotLoaded) {
    static const SvcBuiltInMessage messages[] = {{Id(204, 1), "one"}, {0, nullptr}};
    SvcSetBuiltInMessages(204, messages);
    EXPECT_EQ(Text(204, 1), "");
}

TEST_F(SvcMessageTest, CountsLoads) {
    static const SvcBuiltInMessage messages[] = {{Id(205, 1), "one"}, {0, nullptr}};
    SvcSetBuiltInMessages(205, messages);
    EXPECT_EQ(SvcLoadMessage(205, "xxxtest205"), 0U);
    EXPECT_EQ(SvcLoadMessage(205, "xxxtest205"), 0U);
    SvcUnloadMessage(205);
    EXPECT_EQ(Text(205, 1), "one");
    SvcUnloadMessage(205);
    EXPECT_EQ(Text(205, 1), "");
    EXPECT_EQ(SvcLoadMessage(205, "xxxtest205"), 0U);
    EXPECT_EQ(Text(205, 1), "one");
    SvcUnloadMessage(205);
}

TEST_F(SvcMessageTest, UnloadingWhatIsNotLoadedIsHarmless) {
    static const SvcBuiltInMessage messages[] = {{Id(206, 1), "one"}, {0, nullptr}};
    SvcSetBuiltInMessages(206, messages);
    SvcUnloadMessage(206);
    SvcUnloadMessage(206);
    EXPECT_EQ(SvcLoadMessage(206, "xxxtest206"), 0U);
    EXPECT_EQ(Text(206, 1), "one") << "the loads are counted from 0";
}

TEST_F(SvcMessageTest, TextsStayReadableAfterUnloading) {
    static const SvcBuiltInMessage messages[] = {{Id(207, 1), "one"}, {0, nullptr}};
    SvcSetBuiltInMessages(207, messages);
    EXPECT_EQ(SvcLoadMessage(207, "xxxtest207"), 0U);
    const char* text = SvcGetMessagePtr(Id(207, 1));
    SvcUnloadMessage(207);
    EXPECT_STREQ(text, "one");
}

TEST_F(SvcMessageTest, BuiltInTextsStandFromTheNextLoadOn) {
    static const SvcBuiltInMessage before[] = {{Id(208, 1), "before"}, {0, nullptr}};
    static const SvcBuiltInMessage after[] = {{Id(208, 1), "after"}, {0, nullptr}};
    SvcSetBuiltInMessages(208, before);
    EXPECT_EQ(SvcLoadMessage(208, "xxxtest208"), 0U);
    SvcUnloadMessage(208);
    SvcSetBuiltInMessages(208, after);
    EXPECT_EQ(SvcLoadMessage(208, "xxxtest208"), 0U);
    EXPECT_EQ(Text(208, 1), "after");
}

TEST_F(SvcMessageTest, ACatalogueWithoutTextsLoads) {
    EXPECT_EQ(SvcLoadMessage(209, "xxxtest209"), 0U);
    EXPECT_EQ(Text(209, 1), "");
}

TEST_F(SvcMessageTest, ANullNameIsRefused) {
    EXPECT_EQ(SvcLoadMessage(210, nullptr), 36U);
}

TEST_F(SvcMessageTest, IsUsedByThreadsAtOnce) {
    static const SvcBuiltInMessage messages[] = {{Id(211, 1), "one"}, {0, nullptr}};
    SvcSetBuiltInMessages(211, messages);
    EXPECT_EQ(SvcLoadMessage(211, "xxxtest211"), 0U);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([] {
            for (int step = 0; step < 200; ++step) {
                EXPECT_EQ(SvcLoadMessage(211, "xxxtest211"), 0U);
                EXPECT_EQ(Text(211, 1), "one");
                SvcUnloadMessage(211);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
} // namespace KTEST
