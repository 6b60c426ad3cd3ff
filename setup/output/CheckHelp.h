// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace KSETUP {

/// What docs/check.md says of a finding of "ins-setup check", in English.
/// tools/texts collects it for translation.
struct KCheckHelp {
    std::string name;
    bool isError = false;
    std::string found; ///< when it is found
    std::string example;
    std::string instead;
};

/// docs/check.md, which the build puts into the program.
std::string_view GetCheckPage() noexcept;

/// All findings, in the order of the page.
std::vector<KCheckHelp> ReadCheckHelp(std::string_view page);

/// One of them for people and in their language, over several lines, for a terminal of so
/// many columns; 0 is none.
std::string ToText(const KCheckHelp& help, std::size_t columns = 0);
/// All of them, a line each.
std::string ToText(const std::vector<KCheckHelp>& all);

} // namespace KSETUP
