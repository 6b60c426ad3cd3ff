// SPDX-License-Identifier: MIT
#include <setup/files/KFileDigest.h>

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr const char* sumOfNothing =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr const char* sumOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

TEST(KDigestSumTest, IsThatOfAllPiecesAsOne) {
    KSETUP::KDigestSum sum;
    for (const char* piece : {"a", "", "bc"}) {
        sum.Add(piece);
    }
    EXPECT_EQ(sum.End(), sumOfAbc);
    EXPECT_EQ(KSETUP::DigestBytes("abc"), sumOfAbc);
}

TEST(KDigestSumTest, OfNothingIsOneToo) {
    EXPECT_EQ(KSETUP::KDigestSum().End(), sumOfNothing);
}

} // namespace
