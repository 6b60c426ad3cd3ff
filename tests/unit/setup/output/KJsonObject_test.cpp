// SPDX-License-Identifier: MIT
#include <setup/output/KJsonObject.h>

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using KSETUP::KJsonObject;

TEST(KJsonObjectTest, MembersStandInTheOrderInWhichTheyCame) {
    KJsonObject object;
    object.Put("z", "text").Put("a", 1).Put("m", true).Put("b", false).Put("c", UINT64_MAX);
    EXPECT_EQ(object.ToText(), R"({"z":"text","a":1,"m":true,"b":false,"c":18446744073709551615})");
}

TEST(KJsonObjectTest, NoControlStandsInItAsItIs) {
    EXPECT_EQ(
        KJsonObject().Put("a\x7f", "\x1b[2J\x7f\xC2\x9B\xC2\xA0").ToText(),
        "{\"a\\u007f\":\"\\u001b[2J\\u007f\\u009b\xC2\xA0\"}"
    );
}

TEST(KJsonObjectTest, NothingIsAnEmptyObject) {
    EXPECT_EQ(KJsonObject().ToText(), "{}");
    EXPECT_EQ(KJsonObject().Put("a", KJsonObject()).ToText(), R"({"a":{}})");
    EXPECT_EQ(KJsonObject().Put("a", std::vector<std::string>()).ToText(), R"({"a":[]})");
}

TEST(KJsonObjectTest, ObjectsAndListsAreHeld) {
    const KJsonObject inner = KJsonObject().Put("x", 1);
    EXPECT_EQ(
        KJsonObject()
            .Put("one", inner)
            .Put("more", std::vector<KJsonObject>{inner, inner})
            .Put("texts", std::vector<std::string>{"a", "b"})
            .ToText(),
        R"({"one":{"x":1},"more":[{"x":1},{"x":1}],"texts":["a","b"]})"
    );
}

TEST(KJsonObjectTest, MembersOfAnotherStandBehindItsOwn) {
    const KJsonObject other = KJsonObject().Put("b", 2);
    EXPECT_EQ(KJsonObject().Put("a", 1).PutAll(other).ToText(), R"({"a":1,"b":2})");
    EXPECT_EQ(KJsonObject().PutAll(other).ToText(), R"({"b":2})");
    EXPECT_EQ(KJsonObject().Put("a", 1).PutAll(KJsonObject()).ToText(), R"({"a":1})");
}

TEST(KJsonObjectTest, KeysAndTextsAreEscaped) {
    EXPECT_EQ(
        KJsonObject().Put("a\"b", "c\\\n\x01 \xC3\xA4").ToText(),
        "{\"a\\\"b\":\"c\\\\\\n\\u0001 \xC3\xA4\"}"
    );
}

TEST(KJsonObjectTest, BytesThatAreNoUtf8AreReplaced) {
    EXPECT_EQ(KJsonObject().Put("a", "x\xFFy").ToText(), "{\"a\":\"x\xEF\xBF\xBDy\"}");
}

TEST(KJsonObjectTest, AsAsciiAllElseIsEscaped) {
    KJsonObject object(KJsonObject::Characters::Ascii);
    object.Put("\xC3\xA4", "\xC3\xA4\x7F\xFF\xF0\x9F\x98\x80");
    EXPECT_EQ(object.ToText(), R"({"\u00e4":"\u00e4\u007f\ufffd\ud83d\ude00"})");
}

} // namespace
