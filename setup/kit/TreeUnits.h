// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KAddedTree.h>
#include <setup/text/KText.h>

#include <string>
#include <vector>

namespace KSETUP {

/// A unit file of a service in a tree, where systemd looks for such: usr/lib/systemd/system,
/// lib/systemd/system or etc/systemd/system.
struct KTreeUnit {
    std::string directory; ///< from the tree's root
    std::string service;   ///< its name, without ".service"
    bool isStarted = true; ///< by the rules; a program that ends by itself is left to the next boot
    /// Why no rules are made for it, as a sentence for its author; empty when they are.
    KText objection;
};

/// The service units of a tree, without templates and without links.
///
/// Throws   KSetupFailure for one that cannot be read
std::vector<KTreeUnit> FindUnits(const KAddedTree& tree);

} // namespace KSETUP
