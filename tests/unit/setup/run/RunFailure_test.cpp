// SPDX-License-Identifier: MIT
#include <setup/run/RunFailure.h>
#include <sup++/KError.h>
#include <sup++/KErrorCode.h>
#include <sup++/KErrorSource.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace {

using ::testing::StartsWith;

/// Of a link of the record that could not be read.
std::string WordsFor(int errorNumber) {
    try {
        KSUP::KErrorSource{"test"}.RaiseAs(
            {KSUP::KErrorKind::RecordLink,
             KSUP::KOperation::Read,
             "/etc/dps/dps",
             std::generic_category().message(errorNumber)},
            KSUP::TraceLevel::rule,
            KSUP::ErrorCode::notFound
        );
    } catch (const KSUP::KError& error) {
        return KSETUP::DescribeError(error).English();
    }
}

TEST(DescribeErrorTest, ALinkThatCannotBeReadIsNotCalledMissing) {
    EXPECT_EQ(
        WordsFor(EIO), "cannot read /etc/dps/dps: Input/output error. Fix the cause and try again."
    );
    for (const int missing : {ENOENT, ENOTDIR, EINVAL}) {
        EXPECT_THAT(WordsFor(missing), StartsWith("The product's link is missing or no link."));
    }
}

/// Of a failure that is of no file.
std::string WordsWithoutFile(const char* reason, unsigned code) {
    try {
        KSUP::KErrorSource{"test"}.RaiseAs(
            {KSUP::KErrorKind::System, KSUP::KOperation::None, {}, reason},
            KSUP::TraceLevel::setup,
            code
        );
    } catch (const KSUP::KError& error) {
        return KSETUP::DescribeError(error).English();
    }
}

TEST(DescribeErrorTest, AnErrorOfTheSystemWithoutAFileHasItsWords) {
    // As the lock of a rule manager has it for which there is no memory.
    EXPECT_EQ(WordsWithoutFile("", ENOMEM), "Cannot allocate memory");
    EXPECT_EQ(WordsWithoutFile("no such lock", KSUP::ErrorCode::notFound), "no such lock");
}

} // namespace
