// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KOperation.h>
#include <sup++/KString.h>

#include <cstdint>
#include <functional>

namespace KINS {

/// One step of a run, as it is pushed to a RunListener. All steps come in the order in which they
/// happen: a rule begins, reports, and is done before the next one begins. A rule that does not count
/// (KInstallRuleBase::ShouldCount) neither begins nor is done; what it reports belongs to the next
/// one that counts. A rule that fails is not done.
///
/// Lifetime the texts are those of the call
struct KRunEvent {
    /// What has happened.
    enum class Kind : std::uint32_t {
        RuleStarted = 0, ///< the text is the rule's description
        Status = 1,      ///< the rule reports; the text is the status, without its percentage
        RuleDone = 2,    ///< the text is the rule's description
    };

    Kind kind;                 ///< says which of the members below have a meaning
    unsigned rule;             ///< the number of the rule among those that count, from 0
    const KSUP::KString& text; ///< the description or the status, as Kind tells
    double percentage;         ///< 0 to 100 of a Status, else noPercentage
    /// What the rule does to `path`: Write for what it makes, copies or changes. Of a Status only.
    KSUP::KOperation operation;
    const KSUP::KString& path; ///< the rule's current target; empty without one
};

/// Called on the worker thread under the manager's lock, behind the StatusCallback and under its
/// rules: it may ask the installer's getters and call Stop, and waits for nobody who does. What it
/// throws ends the run.
using RunListener = std::function<void(const KRunEvent& event)>;

} // namespace KINS
