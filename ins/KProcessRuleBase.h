// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallRule.h>
#include <sup++/KError.h>

namespace KINS {

/// `process=start,command` runs a command line and waits for it; `process=stop,program` ends the
/// running processes of a program. The action is exact; any other does nothing, which is meant. The
/// command is expanded while the script loads and once more when it runs.
class INS_EXPORT KProcessRuleBase : public KInstallRule {
  public:
    /// Copies the line; only Initialize reads it and can refuse it.
    KProcessRuleBase(KInstallRuleManagerBase* owner, const KSUP::KString& line);
    ~KProcessRuleBase() override;

    /// Throws   KSUP::KError 172 when the process cannot be started or stopped; what the command
    ///          itself answers does not matter
    void Execute() override;
    KSUP::KString Description() const override;
    /// Throws   KSUP::KError 7000 with the line unless there are 2 fields
    void ParseRule(const std::vector<KSUP::KString>& fields) override;

  private:
    void Start(const KSUP::KString& expanded);
    void StopProgram(const KSUP::KString& expanded);
    [[noreturn]] void
    Fail(const char* logText, const KSUP::KString& expanded, const KSUP::KError& cause);
    KSUP::KString LogName() const;

    KSUP::KString action;
    KSUP::KString command;
};

} // namespace KINS
