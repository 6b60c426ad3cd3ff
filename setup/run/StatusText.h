// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <string>

namespace KSETUP {

/// What a rule says of itself while it runs, for people and programs. The engine has services' texts
/// from its own catalogues, in the language of the environment, and all others in English; those of rules
/// that are not known here stay as they are.
KText StatusText(const std::string& status);

} // namespace KSETUP
