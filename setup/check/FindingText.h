// SPDX-License-Identifier: MIT
#pragma once

#include <setup/check/KFinding.h>
#include <setup/text/KText.h>

#include <string>

namespace KSETUP {

/// A finding in the form in which compilers tell what is wrong, and editors read it:
/// "DIRECTORY/install.ini:12:6: error: what; what to do [rule]". Without control characters.
KText ToLine(const KFinding& finding, const std::string& directory);

} // namespace KSETUP
