// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KRuleLine.h>
#include <sup++/KString.h>

#include <span>
#include <vector>

namespace KINS {

/// What the fields of a rule line are, told before any of them is copied or expanded: KRuleLine is
/// read by it, and so are file rules, of which scripts have hundreds of thousands.
struct RuleLayout {
    const KRuleTypeInfo* info = nullptr; ///< null for KRuleType::None
    KRuleLine::Problem problem = KRuleLine::Problem::None;
    KRuleOperation operation = KRuleOperation::None;
    KSUP::KString loweredOperation; ///< where the type ignores the case
    /// Of the fields, in their order, and of those that may follow; none where their count is wrong.
    std::span<const KRuleField> meanings;
};

/// Looks at fields as KInstallRuleBase::ParseRule is given them.
RuleLayout LayOut(KRuleType type, const std::vector<KSUP::KString>& fields);

} // namespace KINS
