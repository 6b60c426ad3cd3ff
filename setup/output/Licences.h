// SPDX-License-Identifier: MIT
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace KSETUP {

/// A notice that has to go wherever this program goes.
struct KLicence {
    std::string_view name; ///< of the work, and of the file with the notice
    std::string_view text;
};

/// Those of licences/ in the source tree, by name. The build makes its source of them.
std::span<const KLicence> GetLicences() noexcept;

/// All of them, one behind the other, as `--licences` prints them.
std::string LicencesToText();

} // namespace KSETUP
