// SPDX-License-Identifier: MIT
#pragma once

#include <setup/script/KMacroContext.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace KSETUP {

/// A dollar sign in a text, as the engine reads it.
struct KMacroMention {
    std::size_t offset = 0; ///< of the dollar sign, in bytes
    std::string name;       ///< up to the next dollar sign, or to the end
    bool isClosed = false;
    bool isKnown = false; ///< a macro that the engine replaces
};

/// All dollar signs of a text that begin a macro, or could.
std::vector<KMacroMention> FindMacros(const std::string& text, const KMacroContext& macros);

/// The text as a pattern, with "*" for each macro.
std::string PatternOf(const std::string& text, const KMacroContext& macros);

/// The letters, digits and "_" with which a text begins.
std::string_view IdentifierAt(std::string_view text) noexcept;

} // namespace KSETUP
