// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/output/KRunReport.h>
#include <sup++/KError.h>

#include <string>

namespace KSETUP {

/// The record of the installed product.
struct KInstalledRecord {
    std::string path;
    std::string version;
    unsigned buildNumber = 0;
};

/// Throws   KSUP::KError when there is none
KInstalledRecord ReadRecord(const KINS::KInstaller& installer);

/// An error as its reader needs it, by its kind.
std::string InWords(const KSUP::KError& error);

/// What the program answers for an error that ended a run.
int ExitCodeOf(const KSUP::KError& error);

/// What was left for the next boot, as a sentence; empty without any.
std::string LeftServices();

} // namespace KSETUP
