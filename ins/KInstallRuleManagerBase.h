// SPDX-License-Identifier: MIT
#pragma once

#include <ins/Export.h>
#include <ins/KInstallRule.h>
#include <ins/KRunEvent.h>
#include <sup++/KBase.h>
#include <sup++/KList.h>
#include <sup++/KLog.h>
#include <sup++/KMutex.h>
#include <sup++/KString.h>
#include <sup++/KVariant.h>

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>

namespace KINS {

class KInstaller;
class KInstallRuleManagerBase;

/// Called with the status text and a percentage from 0 to 100, or noPercentage.
using StatusCallback = std::function<void(const KSUP::KString& status, double value)>;

/// The value of a status that carries no percentage.
inline constexpr double noPercentage = 4294967295.0;

/// Makes the rule for a line of the script, or answers null: the engine's own rule types come next
/// then. `type` is the line's key, `line` its value as it stands.
///
/// Asked for every line, also for those of included sections and of the command line, where the
/// script is loaded, under the manager's lock. What it throws ends the loading; nothing has run then.
using RuleFactory = std::function<std::unique_ptr<KInstallRule>(
    KInstallRuleManagerBase& manager, const KSUP::KString& type, const KSUP::KString& line
)>;

/// Turns sections of the install script into rules, runs them in order, keeps the progress, the
/// status text and a value for each class of rules.
///
/// The installer owns it; it owns its rules and borrows the installer and its log. Load,
/// ExecuteRules, Clear, in that order.
///
/// Thread   any, save where a function says otherwise. One recursive lock guards everything; it is
///          held during the status callback and released during each rule's Execute, so a getter
///          waits for one step of bookkeeping and never for a rule
class INS_EXPORT KInstallRuleManagerBase : public KSUP::KBase {
  public:
    /// Throws   KSUP::KError when no lock can be made
    explicit KInstallRuleManagerBase(KInstaller* owner);
    ~KInstallRuleManagerBase() override;
    KInstallRuleManagerBase(const KInstallRuleManagerBase&) = delete;
    KInstallRuleManagerBase& operator=(const KInstallRuleManagerBase&) = delete;

    /// Appends the rules of a section of the install script, then those of the section of that name
    /// for the running architecture ("install", "install.x86_64"). A missing section is empty.
    ///
    /// Throws   KSUP::KError of the first invalid line; rules before it stay
    virtual void LoadSection(const KSUP::KString& section);

    /// Appends a profile rule for every "addProfileLine" option of the saved command line.
    ///
    /// Throws   KSUP::KError for an option that cannot be read (nothing is added) or a line that
    ///          cannot be (what came before it stays)
    virtual void LoadCommandLineRules();

    /// Makes a rule from `line` and adds it: the one that the rule factory answers, or else the one of
    /// `type` ("file", "directory", "section", "process", "service", "profile", exactly so).
    ///
    /// Throws   KSUP::KError 7000 for an unknown type; what AddRule(rule) throws
    virtual void AddRule(const KSUP::KString& type, const KSUP::KString& line);

    /// Runs all rules, each with the lock released. Called on the worker thread.
    ///
    /// Throws   KSUP::KError 66 when the run is cancelled before a rule or behind the last one;
    ///          what a rule throws, unchanged. Nothing is undone
    virtual void ExecuteRules();

    /// Calls the callback, then stores the text, with " (43%)" behind it if it has a percentage, then
    /// tells the run listener.
    ///
    /// Throws   what the callback throws, and the stored status is then as before; what the listener
    ///          throws
    virtual void SetCurrentRuleStatus(const KSUP::KString& text, double value);
    /// A status without a percentage.
    virtual void SetCurrentRuleStatus(const KSUP::KString& text);
    /// The text that was reported last; empty before the first one.
    virtual KSUP::KString GetCurrentRuleStatus() const;

    /// Deletes every rule and sets the completed count to 0; status, states and callback stay.
    virtual void Clear();

    /// How many of GetRuleCount are done since Clear; a rule that failed is not.
    virtual unsigned int GetCompletedCount() const;

    /// What KInstaller::ExpandMacros makes of it; unknown macros stay as they are.
    virtual KSUP::KString ExpandMacros(const KSUP::KString& text) const;

    /// How many of the loaded rules say ShouldCount; each is asked, under the lock.
    virtual unsigned int GetRuleCount() const;

    /// Keeps a value for all rules of this rule's class.
    ///
    /// Throws   std::bad_typeid for a null rule
    virtual void SetRuleState(const KInstallRuleBase* rule, const KSUP::KVariant& value);
    /// Throws   KSUP::KError 64 when nothing was kept; std::bad_typeid for a null rule
    /// Lifetime until the manager's end; another SetRuleState of the class changes it in place
    virtual KSUP::KVariant& GetRuleState(const KInstallRuleBase* rule) const;

    /// Whether the run is asked to stop.
    virtual bool IsCancelled() const;

    /// Initialises, logs and appends a rule, and owns it from the first line on: it is deleted if
    /// anything throws.
    ///
    /// Throws   what the rule's Initialize throws
    virtual void AddRule(KInstallRule* rule);

    /// The number before the first comma, or 1. For derived managers and callers.
    virtual unsigned int ParseRuleOrderId(const KSUP::KString& line) const;
    /// The text before the first comma, in lower case. For derived managers and callers.
    virtual KSUP::KString ParseRuleType(const KSUP::KString& line) const;

    /// Thread   before the run starts: it takes no lock
    void SetCallback(StatusCallback statusCallback);
    /// An empty function means none. Before the script is loaded.
    ///
    /// Lifetime the factory goes before the rules that it made
    void SetRuleFactory(RuleFactory ruleFactory);
    /// An empty function means none. Before the run starts.
    void SetRunListener(RunListener runListener);

    /// For rules: what the statuses from here on are about, until the rule ends or names another.
    void SetCurrentTarget(KSUP::KOperation operation, const KSUP::KString& path);
    /// The path that the rule at work, or the last one that was, named as its target; empty without
    /// one.
    KSUP::KString GetCurrentTarget() const;
    /// The installer's setup log.
    KSUP::KLog& GetInstallLog();

  private:
    struct KAttachments;

    const KSUP::KString& LogName() const SUP_REQUIRES(lock);
    void LoadOneSection(const KSUP::KString& section);
    void ExecuteRule(KInstallRule& rule) SUP_REQUIRES(lock);
    void LogRule(const char* what, const KInstallRule& rule) SUP_REQUIRES(lock);
    void TellRule(KRunEvent::Kind kind, const KInstallRule& rule) SUP_REQUIRES(lock);
    void Tell(KRunEvent::Kind kind, const KSUP::KString& text, double percentage)
        SUP_REQUIRES(lock);

    KSUP::KLog* log;                                  // the installer's
    KSUP::KString currentStatus SUP_GUARDED_BY(lock); // without its percentage
    unsigned int completedCount SUP_GUARDED_BY(lock) = 0;
    KInstaller* installer; // owns this manager
    KSUP::KList<KInstallRule> rules SUP_GUARDED_BY(lock);
    mutable std::map<KSUP::KString, KSUP::KVariant> ruleStates SUP_GUARDED_BY(lock);
    StatusCallback callback;   // fixed before the run starts
    mutable KSUP::KMutex lock; // recursive
    std::unique_ptr<KAttachments> attachments SUP_PT_GUARDED_BY(lock); // never null
    // The size of this class is part of the binary interface: this is what is left of a text.
    [[maybe_unused]] std::array<std::byte, sizeof(KSUP::KString) - sizeof(void*)> reserved{};
};

} // namespace KINS
