// SPDX-License-Identifier: MIT
#include <setup/script/EscapedText.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using KSETUP::Escaped;
using KSETUP::NeedsEscapes;
using KSETUP::Unescaped;

/// Knows one macro, whose value has everything that means something.
KSUP::KString Expand(const KSUP::KString& text) {
    KSUP::KString result(text);
    static_cast<void>(result.Replace("$path$", "/opt/%2C,$x", 0, 0, true));
    return result;
}

std::string Read(const char* text) {
    return Unescaped(text, Expand).value_or("(none)");
}

TEST(EscapedTextTest, AnEscapeStandsForItsByte) {
    EXPECT_EQ(Read("a%2Cb%2cc%24d%2A%3F%25%20"), "a,b,c$d*?% ");
    EXPECT_EQ(Read(""), "");
    EXPECT_EQ(Read("plain"), "plain");
}

TEST(EscapedTextTest, MacrosAreExpandedBesideEscapesAndNotLookedAtAgain) {
    EXPECT_EQ(Read("$path$/a%24path%24"), "/opt/%2C,$x/a$path$");
    EXPECT_EQ(Read("$pa%74h$"), "$path$") << "an escape is no part of a macro's name";
}

TEST(EscapedTextTest, APercentSignWithoutTwoDigitsIsNoText) {
    for (const char* const text : {"%", "a%", "%2", "%G0", "%0G", "100% sure", "%00", "%%"}) {
        EXPECT_EQ(Unescaped(text, Expand), std::nullopt) << text;
    }
}

TEST(EscapedTextTest, WhatIsEscapedComesOutAsItWas) {
    const std::string odd = " a,b$path$*?%2C\n\x7F\xC3\xB6 ";
    EXPECT_EQ(Unescaped(Escaped(odd), Expand), odd);
    EXPECT_EQ(Escaped("/opt/a b"), "/opt/a b");
    EXPECT_EQ(Escaped(" "), "%20");
    EXPECT_EQ(Escaped(odd).find_first_of(",$*?\n"), std::string::npos);
}

TEST(EscapedTextTest, OnlyWhatMeansSomethingNeedsEscapes) {
    for (const char* const text : {"a,b", "$", "*", "a?", " a", "a ", "a\tb", "\x7F"}) {
        EXPECT_TRUE(NeedsEscapes(text)) << text;
    }
    for (const char* const text : {"", "a b", "100%", "gr\xC3\xB6\xC3\x9F", "a=b;#[c]"}) {
        EXPECT_FALSE(NeedsEscapes(text)) << text;
    }
}

} // namespace
