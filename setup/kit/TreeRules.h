// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KAddedTree.h>

#include <string>

namespace KSETUP {

/// The directory of a kit in which added trees lie, each under its name.
inline constexpr char payloadDirectory[] = "payload";

/// The part of a script that installs and removes a tree: between two marks, sections [files],
/// [remove files], [files NAME] and [remove files NAME].
std::string WriteRules(const KAddedTree& tree);

/// Whether a script has such a part for a tree of that name.
bool HasRules(const std::string& script, const std::string& name);

/// A script with that part: in the place of the former one for the same tree, or else at the end.
/// Sections [install] and [remove] include it, the first before it makes a link in /etc, the second
/// before anything else. All other lines stay as they are.
///
/// Throws   KSetupFailure when the marks of the former part do not match
std::string
MergeRules(const std::string& script, const std::string& name, const std::string& rules);

} // namespace KSETUP
