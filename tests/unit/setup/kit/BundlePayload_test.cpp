// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"

#include <setup/kit/BundlePayload.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using KSETUP::FindBundlePayload;

constexpr char bundleScript[] = "#!/bin/sh\n"
                                "filesizes=\"12\"\n"
                                "skip=\"4\"\n"
                                "exit 0\n";

TEST(BundlePayloadTest, TheArchiveBeginsBehindSoManyLines) {
    const auto payload = FindBundlePayload(std::string(bundleScript) + "archive");
    ASSERT_TRUE(payload.has_value());
    EXPECT_EQ(payload->offset, std::string(bundleScript).size());
    EXPECT_EQ(payload->byteCount, 12U);
}

struct KOtherFile {
    const char* name;
    const char* from;
    const char* to;
};

class BundlePayloadOtherTest : public ::testing::TestWithParam<KOtherFile> {};

TEST_P(BundlePayloadOtherTest, IsNoBundle) {
    std::string text = bundleScript;
    const std::string from = GetParam().from;
    text.replace(text.find(from), from.size(), GetParam().to);
    EXPECT_FALSE(FindBundlePayload(text).has_value()) << text;
}

INSTANTIATE_TEST_SUITE_P(
    Files,
    BundlePayloadOtherTest,
    ::testing::Values(
        KOtherFile{"OfAnotherShell", "#!/bin/sh\n", "#!/bin/bash\n"},
        KOtherFile{"WithoutALineCount", "skip=", "skop="},
        KOtherFile{"WithoutASize", "filesizes=", "sizes="},
        KOtherFile{"WithTwoSizes", "\"12\"", "\"12 13\""},
        KOtherFile{"WithTwoLineCounts", "exit 0", "skip=\"3\""},
        KOtherFile{"WithALineCountOfNone", "\"4\"", "\"0\""},
        KOtherFile{"WithANegativeLineCount", "\"4\"", "\"-4\""},
        KOtherFile{"WithALineCountThatIsNoNumber", "\"4\"", "\"4x\""},
        KOtherFile{"WithALineCountWithZerosBefore", "\"4\"", "\"04\""},
        KOtherFile{"WithASizeWithZerosBefore", "\"12\"", "\"012\""},
        KOtherFile{"WithoutANumber", "\"4\"", "\""},
        KOtherFile{"WithMoreLinesThanThereAre", "\"4\"", "\"5\""},
        KOtherFile{"WithACommandInTheNumber", "\"4\"", "\"$(id)\""}
    ),
    KTEST::NameOfRow{}
);

TEST(BundlePayloadTest, AnEmptyFileIsNoBundle) {
    EXPECT_FALSE(FindBundlePayload("").has_value());
}

} // namespace
