// SPDX-License-Identifier: MIT
#include <setup/state/KJsonLine.h>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using KSETUP::KJsonLine;

class AnyTextTest : public ::testing::TestWithParam<std::string> {};

TEST_P(AnyTextTest, ComesBackFromOneLine) {
    KJsonLine line;
    line.Put("path", GetParam());
    const std::string text = line.ToText();
    EXPECT_EQ(text.find('\n'), text.size() - 1);
    EXPECT_EQ(KJsonLine(text).GetText("path"), GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    AnyTextTest,
    ::testing::Values(
        "", "/opt/dps", "a\nb\"c\\d", "Größe", "\xFF", "a\xC3", "\x01\x7F", "\x1F", "\xED\xA0\x80"
    )
);

TEST(KJsonLineTest, WhatIsNoUtf8StandsInHexadecimal) {
    KJsonLine line;
    line.Put("path", "/\xFF");
    EXPECT_EQ(line.ToText(), "{\"pathHex\":\"2fff\"}\n");
}

TEST(KJsonLineTest, ALargeNumberIsExact) {
    KJsonLine line;
    line.Put("size", std::uint64_t{18446744073709551615U});
    EXPECT_EQ(KJsonLine(line.ToText()).GetNumber("size"), 18446744073709551615U);
}

class NoLineTest : public ::testing::TestWithParam<const char*> {};

TEST_P(NoLineTest, IsRefused) {
    EXPECT_THROW(KJsonLine(GetParam()).GetText("a"), std::invalid_argument);
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    NoLineTest,
    ::testing::Values(
        "",
        "{",
        "[]",
        "1",
        "{\"a\":1}",
        "{\"a\":-1}",
        "{\"a\":null}",
        "{\"a\":{}}",
        "{\"b\":\"x\"}",
        "{\"aHex\":\"0\"}",
        "{\"aHex\":\"0g\"}",
        "{\"a\":\"x\"} {}",
        "{\"a\":\"x\"}}",
        "{\"a\":\"x\"",
        "{\"a\":\"x\",}",
        "{\"a\":\"x\"\"b\":1}",
        "{\"a\":\"x\",\"b\":01}",
        "{\"a\":\"x\",\"b\":}",
        "{\"a\":\"x\",\"b\":1.5}",
        "{\"a\":\"x\",\"b\":1e3}",
        "{\"a\":\"x\",\"b\":18446744073709551616}",
        "{\"a\":\"x\ty\"}",
        "{\"a\":\"x\x1Fy\"}",
        "{\"a\":\"x\ny\"}",
        "{\"a\":\"\xFF\"}",
        "{\"a\" \"x\"}",
        "\n{\"a\":\"x\"}x"
    )
);

/// Lines of one meaning.
class AnyFormTest : public ::testing::TestWithParam<const char*> {};

TEST_P(AnyFormTest, IsTheSameLine) {
    EXPECT_EQ(KJsonLine(GetParam()).ToText(), "{\"a\":\"x\",\"b\":0,\"c\":20}\n");
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    AnyFormTest,
    ::testing::Values(
        "{\"a\":\"x\",\"b\":0,\"c\":20}",
        "{\"a\":\"x\",\"b\":0,\"c\":20}\n",
        "{\"c\":20,\"b\":0,\"a\":\"x\"}",
        " { \"a\" : \"x\" , \"b\" : 0 , \"c\" : 20 } \n\n",
        "{\"\\u0061\":\"\\u0078\",\"b\":0,\"c\":20}",
        "{\"a\":1,\"a\":\"y\",\"a\":\"x\",\"b\":0,\"c\":20}",
        "{\"aHex\":\"78\",\"b\":0,\"c\":20}",
        "{\"aHex\":\"79\",\"b\":0,\"c\":20,\"a\":\"x\"}"
    )
);

TEST(KJsonLineTest, AnEmptyObjectHasNothing) {
    EXPECT_EQ(KJsonLine("{}").ToText(), "{}\n");
}

TEST(KJsonLineTest, ATextIsNoNumber) {
    EXPECT_THROW(KJsonLine("{\"a\":\"1\"}").GetNumber("a"), std::invalid_argument);
    EXPECT_THROW(KJsonLine("{}").GetNumber("a"), std::invalid_argument);
}

} // namespace
