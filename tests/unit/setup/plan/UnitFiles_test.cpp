// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"

#include <setup/KSetupFailure.h>
#include <setup/plan/UnitFiles.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

TEST(UnitFilesTest, AServiceWithoutAUnitHasNoEntries) {
    EXPECT_THAT(KSETUP::FindUnitEntries("inspp-has-no-such-service"), ::testing::IsEmpty());
}

/// Or an upgrade would take it for one that the administrator disabled.
TEST(UnitFilesTest, WhatCannotBeLookedAtIsNotMissing) {
    std::string words;
    failcall_arm("fstatat", 1, ENOMEM, 0);
    try {
        KSETUP::FindUnitEntries("inspp-has-no-such-service");
    } catch (const KSETUP::KSetupFailure& failure) {
        words = failure.what();
    }
    failcall_disarm();
    EXPECT_THAT(
        words,
        ::testing::HasSubstr("cannot look at /etc/systemd/system/inspp-has-no-such-service.service")
    );
}

} // namespace
