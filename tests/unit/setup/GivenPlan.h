// SPDX-License-Identifier: MIT
#pragma once

#include "../../support/TemporaryTree.h"

#include <setup/KSetupFailure.h>
#include <setup/plan/KPlan.h>
#include <sup++/KString.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace KTEST {

/// Plans on the disk as it is, with a kit in "kit", and what is said where something is refused.
class GivenPlan : public ::testing::Test {
  protected:
    /// Plans these lines of [install]. Macros stay as they stand.
    KSETUP::KPlan PlanOf(const std::string& lines) {
        tree.Write("kit/install.ini", "[install]\n" + lines);
        KSETUP::KPlannedTree planned(KSETUP::KPlannedTree::Below::Disk, tree.Path("kit"));
        return KSETUP::KPlan(
            KSETUP::KScript(KSUP::KString(tree.Path("kit/install.ini"))),
            "install",
            [](const KSUP::KString& text) { return text; },
            planned
        );
    }
    /// The exit code of a refusal, whose words are kept; 0 when nothing is refused.
    int CodeOf(const std::function<void()>& look) {
        try {
            look();
        } catch (const KSETUP::KSetupFailure& failure) {
            words = failure.what();
            return failure.GetExitCode();
        }
        return 0;
    }

    TemporaryTree tree;
    std::string words;
};

} // namespace KTEST
