// SPDX-License-Identifier: MIT
#pragma once

#include "KMachineState.h"
#include "KTracedRun.h"

#include <string>
#include <vector>

namespace KSWEEP {

/// One command that is tried, from what to what.
struct KWay {
    std::string name;               ///< as it is chosen by
    std::string from;               ///< the state before it, by name
    std::vector<std::string> words; ///< behind the program
    int exitCode = 0;               ///< of an undisturbed run
    std::string to;                 ///< the state after it; the one before it for a question
    /// What else an administrator may do when it was interrupted, and how the product may look then.
    std::vector<std::string> otherWords;
    std::vector<std::string> otherTo;
    bool asksOnly = false;
};

/// A product with something of each kind, in two versions and one that fails, signed, sealed, and
/// installed in a machine on which it leaves configuration that its administrator edited.
class KSubject {
  public:
    /// Makes the kits and each state, by undisturbed runs of `program`.
    ///
    /// Throws   std::runtime_error when one of them does not go as it should
    explicit KSubject(std::string program);

    const std::vector<KWay>& GetWays() const noexcept { return ways; }
    const KMachineState& GetMachine() const noexcept { return machine; }
    /// What the machine looks like in a state.
    const KLook& LookOf(const std::string& state) const { return looks.at(state); }
    /// What `status`, `status --verify` and `list` say in a state: exit codes and texts.
    const std::string& AnswersOf(const std::string& state) const { return answers.at(state); }

    /// The words of a command, the program first.
    std::vector<std::string> Words(const std::vector<std::string>& words) const;
    /// The words that undo the last run.
    std::vector<std::string> Restoration() const;
    /// Runs a command to its end.
    KTracedEnd Run(const std::vector<std::string>& words) const;
    std::string Ask() const;
    /// Whether a run is remembered that did not come to its end.
    bool IsInterrupted() const;

  private:
    void MakeKits() const;
    void MakeStates();
    void Reach(const std::string& state, const std::string& from, const KWay& way);
    void Note(const std::string& state);

    std::string program;
    KMachineState machine;
    std::map<std::string, KLook> looks;
    std::map<std::string, std::string> answers;
    std::vector<KWay> ways;
};

} // namespace KSWEEP
