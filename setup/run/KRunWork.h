// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KSETUP {

/// How much a run has to do, by bytes and rules as they were planned, and how much of it is done.
///
/// Borrows the rules of the plan.
class KRunWork {
  public:
    /// A rule that counts.
    struct Rule {
        const KPlannedRule* planned = nullptr; ///< null where no plan has it
        bool startsPrograms = false;           ///< or services, which take longer
    };

    explicit KRunWork(const std::vector<Rule>& countedRules);

    /// The rule, counted from 0, is at work; those before it are done.
    void BeginRule(std::size_t rule);
    /// It begins with this file or directory. Those before it in the plan are done.
    void BeginEntry(const std::string& path);
    /// Units    `part` of that file, from 0 to 1
    void SetPart(double part) noexcept;

    /// Of all that is to be done. It never goes back, and stays below 100: what comes behind the
    /// rules is not in it.
    unsigned GetPercent() noexcept;
    std::uint64_t GetBytesDone() const noexcept;
    std::uint64_t GetBytesAll() const noexcept { return sums.back().bytes; }

  private:
    struct Sum {
        std::uint64_t cost = 0;
        std::uint64_t bytes = 0; ///< to be copied
    };

    static Sum SumOf(const KPlannedAction& action) noexcept;

    std::vector<const KPlannedRule*> planned;
    std::vector<Sum> sums; // of all rules before this one, and at last of all
    std::size_t current = 0;
    std::size_t next = 0; // of the rule's actions, the one behind the entry at work
    Sum before;           // of the rule's entries that are done
    Sum entry;            // at work
    double done = 0;      // of it
    unsigned percent = 0;
};

} // namespace KSETUP
