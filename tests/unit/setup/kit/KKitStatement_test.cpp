// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"

#include <setup/kit/KKitStatement.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using KSETUP::KKitStatement;

TEST(KKitStatementTest, ACommentIsReadAsItWasWritten) {
    const KKitStatement statement{"Hello World: 2", "hello", "1.5 beta", 9};
    EXPECT_EQ(
        statement.ToComment(), "product:Hello World: 2\tservice:hello\tversion:1.5 beta\tbuild:9"
    );
    EXPECT_EQ(KKitStatement::FromComment(statement.ToComment()), statement);
}

struct KOtherComment {
    const char* name;
    const char* comment;
};

class KKitStatementOtherTest : public ::testing::TestWithParam<KOtherComment> {};

TEST_P(KKitStatementOtherTest, IsNoKits) {
    EXPECT_FALSE(KKitStatement::FromComment(GetParam().comment).has_value());
}

INSTANTIATE_TEST_SUITE_P(
    Comments,
    KKitStatementOtherTest,
    ::testing::Values(
        KOtherComment{"Empty", ""},
        KOtherComment{"OfMinisign", "timestamp:1700000000\tfile:SHA256SUMS\thashed"},
        KOtherComment{"WithoutABuild", "product:a\tservice:b\tversion:1"},
        KOtherComment{"InAnotherOrder", "service:b\tproduct:a\tversion:1\tbuild:2"},
        KOtherComment{"WithMore", "product:a\tservice:b\tversion:1\tbuild:2\tmore:3"},
        KOtherComment{"WithATabMore", "product:a\tservice:b\tversion:1\tbuild:2\t"},
        KOtherComment{"WithSpacesBetween", "product:a service:b version:1 build:2"},
        KOtherComment{"OfNoProduct", "product:\tservice:b\tversion:1\tbuild:2"},
        KOtherComment{"OfAServiceThatIsAPath", "product:a\tservice:../b\tversion:1\tbuild:2"},
        KOtherComment{"OfABuildThatIsNoNumber", "product:a\tservice:b\tversion:1\tbuild:2x"},
        KOtherComment{"OfABuildWithASign", "product:a\tservice:b\tversion:1\tbuild:+2"},
        KOtherComment{"OfABuildWithZerosBefore", "product:a\tservice:b\tversion:1\tbuild:02"},
        KOtherComment{"OfAHugeBuild", "product:a\tservice:b\tversion:1\tbuild:99999999999"},
        KOtherComment{"WithAnEscapeSequence", "product:a\x1b[2J\tservice:b\tversion:1\tbuild:2"}
    ),
    KTEST::NameOfRow{}
);

} // namespace
