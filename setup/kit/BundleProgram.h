// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace KSETUP {

/// Where the notices of all that is in a bundle lie in it.
inline constexpr const char* licencesBeside = "licences";

/// Whether bytes begin as a program or a library does.
bool IsElf(std::string_view bytes);
/// Whether a file beside the program holds messages of its library.
bool IsCatalogueOfLibrary(std::string_view name);

/// The program that a bundle begins with, where it is installed beside the running one.
///
/// Throws   KSetupFailure where it is not there
std::string FindBundleHead();

/// Makes a kit run anywhere: puts the running ins-setup into it, unless it has one of its own, and
/// beside it the loader and each library that runs with it, unless the kit has one of that name. They
/// look for each other in their own directory and nowhere else. With them come the texts of all
/// languages. A kit whose ins-setup is a script gets nothing: the host runs that.
///
/// Throws   KSetupFailure
void AddProgram(const std::filesystem::path& kit);

} // namespace KSETUP
