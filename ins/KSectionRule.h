// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallRule.h>

namespace KINS {

/// `section=name`: includes another section of the script. The included rules are added while this
/// one is, so they come before it; it does nothing itself and does not count. The whole line,
/// expanded by the constructor, is the name.
///
/// A section that includes itself is not noticed: loading it recurses without end.
class INS_EXPORT KSectionRule : public KInstallRule {
  public:
    /// Expands the line. See KInstallRuleBase.
    KSectionRule(KInstallRuleManagerBase* owner, const KSUP::KString& line);
    ~KSectionRule() override;

    void Execute() override;
    /// Loads the section, once, however often it is called. After a KSUP::KError it may be tried
    /// again; rules added before the failing line stay in the list.
    void Initialize() override;
    KSUP::KString Description() const override;
    bool ShouldCount() const override;
};

} // namespace KINS
