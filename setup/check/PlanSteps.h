// SPDX-License-Identifier: MIT
#pragma once

#include <setup/check/KCheckContext.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace KSETUP {

/// Whether the action makes a file or a link.
bool MakesFile(const KPlannedAction& action) noexcept;

/// A rule that copies, of whatever type.
struct KCopyLine {
    std::string name; ///< of the file; perhaps a pattern
    std::string from; ///< the directory
    std::string to;   ///< likewise; empty where the line has none
    std::string newName;
    bool isPattern = false;
    std::size_t nameField = 1; ///< which field has it
};

/// Nothing for a rule that does not copy.
std::optional<KCopyLine> CopyLineOf(const KScriptRule& rule);

/// A path of a step as the kit's author knows it: one in the kit without the kit's directory.
std::string InKit(const std::string& path, const KCheckContext& context);

} // namespace KSETUP
