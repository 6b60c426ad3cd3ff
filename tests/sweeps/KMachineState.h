// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <vector>

namespace KSWEEP {

/// What stands at some places, by path: kind, mode, owner, and the bytes or the target. What is
/// another each time is left out of what ins-setup keeps for itself: times, and the names of runs.
using KLook = std::map<std::string, std::string>;

/// The places of the machine that runs of the product change, which can be looked at, kept, and put
/// back. `root` is where they are: "" or another root.
class KMachineState {
  public:
    /// Keeps its copies below `store`. The product is in `path`; empty for its place in /opt.
    KMachineState(
        std::string service, std::string product, std::string store, std::string path = {}
    );

    KLook Look() const;
    /// All of it in a short text, also what a backup keeps, which is not a part of a look. Two states have
    /// the same one only if they are the same.
    std::string Summary() const;
    /// Keeps what is there as `name`, with owners, modes, times and attributes.
    ///
    /// Throws   std::runtime_error
    void Keep(const std::string& name) const;
    /// Puts back what was kept; what is there now is gone.
    ///
    /// Throws   std::runtime_error
    void PutBack(const std::string& name) const;

    /// Where what was kept is, as below another root.
    std::string CopyOf(const std::string& name) const { return store + "/" + name; }

    std::string StateDirectory() const { return "/var/lib/ins++/" + service; }

  private:
    std::vector<std::string> Places() const;
    KLook LookAt(bool withBackup) const;

    std::string service;
    std::string product;
    std::string store;
    std::string path;
};

/// A look without what ins-setup keeps for itself, and without the users of the machine, who stay.
KLook ProductOf(KLook look);

/// The lines that only one of two looks has, marked by "-" and "+", at most so many.
std::string Difference(const KLook& expected, const KLook& got, std::size_t most = 6);

} // namespace KSWEEP
