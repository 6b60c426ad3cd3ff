// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallRule.h>

namespace KINS {

/// `directory=operation,path`: "create" makes a directory with its parents, "delete" removes the
/// files in it and then the directory, if it is empty by then. Case does not matter. It forgives:
/// neither a failed operation nor an unknown one stops the run. The whole line is expanded by the
/// constructor.
class INS_EXPORT KDirectoryRule : public KInstallRule {
  public:
    /// Expands the line. See KInstallRuleBase.
    KDirectoryRule(KInstallRuleManagerBase* owner, const KSUP::KString& line);
    ~KDirectoryRule() override;

    void Execute() override;
    KSUP::KString Description() const override;
    /// Throws   KSUP::KError 7000 with the expanded line unless there are 2 fields
    void ParseRule(const std::vector<KSUP::KString>& fields) override;

  private:
    void Create();
    void Delete();

  protected:
    KSUP::KString path;      ///< the directory
    KSUP::KString operation; ///< in lower case
};

} // namespace KINS
