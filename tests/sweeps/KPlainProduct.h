// SPDX-License-Identifier: MIT
#pragma once

#include "KSubject.h"

#include <string>
#include <vector>

namespace KSWEEP {

/// A product that runs nothing as root, so that it may be installed below a user's directory: files,
/// configuration, links, rights, a backup. The same ways as those of KSubject.
class KPlainProduct {
  public:
    /// Makes the kits, and each state that a way begins with.
    ///
    /// Throws   std::runtime_error when one of the runs does not go as it should
    explicit KPlainProduct(std::string program);

    const std::vector<KWay>& GetWays() const noexcept { return ways; }
    const KMachineState& GetMachine() const noexcept { return machine; }
    /// What was there in each state.
    const std::vector<KLook>& GetLooks() const noexcept { return looks; }

    static std::string Place() { return "/home/sweeper"; }
    static std::string Path() { return Place() + "/deep/app"; }
    /// The kit that is installed in most states.
    static std::string Kit() { return "/srv/plain/1.0"; }
    /// A kit of the user's that brings a file into a directory of root's.
    static std::string EvilKit() { return "/srv/plain/evil"; }

  private:
    void MakeKits() const;
    void MakeStates();
    void Reach(const std::string& state, const std::vector<std::string>& words, int exitCode);
    void Note(const std::string& state);

    std::string program;
    KMachineState machine;
    std::vector<KLook> looks;
    std::vector<KWay> ways;
};

} // namespace KSWEEP
