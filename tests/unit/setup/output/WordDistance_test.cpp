// SPDX-License-Identifier: MIT
#include <setup/output/WordDistance.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using KSETUP::NearestWord;

const std::vector<std::string> commands = {"install", "remove", "restore", "status", "list"};

TEST(WordDistanceTest, AMisspeltWordIsNearTheOneThatWasMeant) {
    EXPECT_EQ(NearestWord("instal", commands), "install");
    EXPECT_EQ(NearestWord("isntall", commands), "install");
    EXPECT_EQ(NearestWord("remvoe", commands), "remove");
    EXPECT_EQ(NearestWord("statsu", commands), "status");
    EXPECT_EQ(NearestWord("lst", commands), "list");
}

TEST(WordDistanceTest, AnotherWordIsNearNone) {
    EXPECT_EQ(NearestWord("upgrade", commands), "");
    EXPECT_EQ(NearestWord("x", commands), "");
    EXPECT_EQ(NearestWord("", commands), "");
    EXPECT_EQ(NearestWord(std::string(100, 'i'), commands), "");
}

} // namespace
