// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <cstdint>
#include <string>

namespace KSETUP {

enum class KSeverity : std::uint8_t { Error, Warning };

/// Something in a kit that is wrong, or looks so. Texts are as they came: whoever shows them makes
/// them harmless.
struct KFinding {
    KSeverity severity = KSeverity::Error;
    std::string file;    ///< of the kit: "install.ini" or "product.ini"
    unsigned line = 1;   ///< in the file
    unsigned column = 1; ///< in bytes
    std::string text;    ///< what is wrong there
    std::string rule;    ///< the check that found it, as "unknown-type"
    KText message;
    KText advice; ///< what to do instead
};

} // namespace KSETUP
