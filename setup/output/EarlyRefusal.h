// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KSetupArguments.h>
#include <setup/text/KText.h>

#include <string>

namespace KSETUP {

/// Tells programs of a refusal that comes before the arguments are understood, or because they are
/// not: who asked for JSON gets it whatever goes wrong. What people read is the caller's to print.
void TellEarlyRefusal(const KAnswerForm& form, int exitCode, const KText& why);
/// The same where the command line was not read yet.
void TellEarlyRefusal(int argc, const char* const* argv, int exitCode, const KText& why);

} // namespace KSETUP
