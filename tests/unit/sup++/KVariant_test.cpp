// SPDX-License-Identifier: MIT
#include "Common.h"

#include <sup++/KVariant.h>

#include <type_traits>

namespace KTEST {
namespace {

using KSUP::KString;
using KSUP::KVariant;

TEST(KVariantTest, BeginsEmpty) {
    const KVariant value;
    EXPECT_EQ(value.GetType(), 0U);
    EXPECT_EQ(value.GetSize(), 0U);
    EXPECT_EQ(value.GetData(), nullptr);
    EXPECT_EQ(value.GetString(), "");
}

TEST(KVariantTest, ATextIsItsBytesAndOneNul) {
    const KVariant value(KString("a\xc3\xa9"));
    EXPECT_EQ(value.GetType(), 4U);
    ASSERT_EQ(value.GetSize(), 4U);
    EXPECT_EQ(std::memcmp(value.GetData(), "a\xc3\xa9", 4), 0);
    EXPECT_EQ(value.GetString(), "a\xc3\xa9");
}

TEST(KVariantTest, IsMadeFromBothKindsOfText) {
    const KVariant fromBytes("stopped");
    EXPECT_EQ(fromBytes.GetType(), 4U);
    EXPECT_EQ(fromBytes.GetSize(), 8U);
    EXPECT_EQ(fromBytes.GetString(), "stopped");
}

TEST(KVariantTest, AnEmptyTextIsATextAllTheSame) {
    for (const KVariant& value :
         {KVariant(""), KVariant(KString()), KVariant(static_cast<const char*>(nullptr))}) {
        EXPECT_EQ(value.GetType(), 4U);
        ASSERT_EQ(value.GetSize(), 1U);
        EXPECT_EQ(*value.GetData(), 0);
        EXPECT_EQ(value.GetString(), "");
    }
}

TEST(KVariantTest, CopiesAreIndependent) {
    KVariant original("first");
    const KVariant copy(original);
    KVariant assigned;
    assigned = original;
    original = KVariant("second");
    EXPECT_EQ(copy.GetString(), "first");
    EXPECT_EQ(assigned.GetString(), "first");
    EXPECT_EQ(assigned.GetType(), 4U);
    EXPECT_NE(copy.GetData(), assigned.GetData());
}

TEST(KVariantTest, MovesKeepTypeAndText) {
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<KVariant>);
    KVariant original("text");
    KVariant moved(std::move(original));
    EXPECT_EQ(moved.GetString(), "text");
    KVariant assigned;
    assigned = std::move(moved);
    EXPECT_EQ(assigned.GetType(), 4U);
    EXPECT_EQ(assigned.GetString(), "text");
}

TEST(KVariantTest, BecomesEmptyAgain) {
    KVariant value("text");
    value = KVariant();
    EXPECT_EQ(value.GetType(), 0U);
    EXPECT_EQ(value.GetSize(), 0U);
    EXPECT_EQ(value.GetString(), "");
}

TEST(KVariantTest, TakesLongTexts) {
    const std::string text(1000000, 'x');
    const KVariant value{KString(text)};
    EXPECT_EQ(value.GetSize(), 1000001U);
    EXPECT_EQ(value.GetString(), text);
}

} // namespace
} // namespace KTEST
