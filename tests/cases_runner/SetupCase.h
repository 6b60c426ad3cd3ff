// SPDX-License-Identifier: MIT
#pragma once

#include "Verdict.h"

#include <filesystem>
#include <map>
#include <string>

namespace KTEST {

/// The kit that cases begin with: the files of tests/cases/setup/kit by their names.
struct StandardKit {
    struct File {
        std::string bytes;
        bool isProgram = false;
    };
    std::map<std::string, File> files;

    /// Throws   CaseError when there is none
    static StandardKit Load(const std::filesystem::path& directory);
};

/// A case of ins-setup, as main.cpp finds it below tests/cases/setup; README.md there tells what
/// its sections mean.
///
/// Throws   CaseError for a case with a mistake in it; std::system_error
/// Thread   the first of a process that ForkIntoWorld has made
Verdict TrySetupCase(const CaseFile& file, const StandardKit& kit);

} // namespace KTEST
