// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/output/KRunReport.h>
#include <setup/text/KText.h>
#include <sup++/KError.h>

#include <string>

namespace KSETUP {

/// An error as its reader needs it, by its kind.
KText DescribeError(const KSUP::KError& error);

/// What the program answers for an error that ended a run.
int ExitCodeOf(const KSUP::KError& error);

/// What was left for the next boot, as a sentence; empty without any.
KText DescribeLeftServices();

} // namespace KSETUP
