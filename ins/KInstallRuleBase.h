// SPDX-License-Identifier: MIT
#pragma once

#include <ins/Export.h>
#include <ins/KRuleLine.h>
#include <sup++/KBase.h>
#include <sup++/KLog.h>
#include <sup++/KString.h>

#include <vector>

namespace KINS {

class KInstallRuleManagerBase;

/// One line of an install script as an object: parsed while the script loads, executed once on the
/// worker thread.
///
/// The manager that loads the script owns the rule; the rule borrows the manager and its log, which
/// both live longer. Construct, Initialize, Execute, in that order; constructing parses nothing.
///
/// Thread   Initialize and ParseRule run where the script is loaded, Description anywhere under the
///          manager's lock, Execute on the worker thread without it
///
///     class KMyRule : public KINS::KInstallRule { … };
///     manager.AddRule(new KMyRule(&manager, "field,field"));
class INS_EXPORT KInstallRuleBase : public KSUP::KBase {
  public:
    /// Throws   what copying the line throws
    KInstallRuleBase(KInstallRuleManagerBase* owner, const KSUP::KString& line);
    ~KInstallRuleBase() override;
    KInstallRuleBase(const KInstallRuleBase&) = delete;
    KInstallRuleBase& operator=(const KInstallRuleBase&) = delete;

    /// Does the rule's work.
    ///
    /// Throws   KSUP::KError on a failure that is to stop the run; what was done stays done
    virtual void Execute() = 0;

    /// Splits the line at its commas and hands the fields to ParseRule.
    ///
    /// Throws   what ParseRule throws; the manager then drops the rule
    virtual void Initialize();

    /// One line for the log.
    virtual KSUP::KString Description() const = 0;

    /// Whether the rule counts towards the progress totals; true here.
    virtual bool ShouldCount() const;

    /// Reads the fields of the line; empty ones have vanished (KString::SectionVector). Nothing
    /// here.
    ///
    /// Throws   KSUP::KError for an invalid line
    virtual void ParseRule(const std::vector<KSUP::KString>& fields);

    /// The manager's ExpandMacros.
    KSUP::KString ExpandMacros(const KSUP::KString& text) const;

  protected:
    /// The fields of the line as a rule of this type reads them, macros expanded by this rule.
    KRuleLine ReadFields(KRuleType type, const std::vector<KSUP::KString>& fields) const;

    KInstallRuleManagerBase* manager; ///< owns this rule
    KSUP::KString ruleLine;           ///< as the constructor of the rule's type handed it on
    KSUP::KLog& log;                  ///< the installer's setup log
    bool initialized;                 ///< set by Initialize
};

/// Writes the rule's description into the current entry, whatever class of log it is: one that is
/// not open swallows it.
INS_EXPORT KSUP::KLogBase& operator<<(KSUP::KLogBase& log, const KInstallRuleBase* rule);

} // namespace KINS
