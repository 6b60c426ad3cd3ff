// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KitFiles.h>

#include <filesystem>
#include <string>
#include <vector>

#include <bundle/WriteBundle.h>

/// How one bundle is made for several architectures.
namespace KSETUP {

/// What a bundle has for one architecture.
struct KBundlePart {
    KBUNDLE::KArchitectureSource source;
    std::string origin; ///< the bundle that it came from, or the kit
};

/// The architecture of a program that bundles begin with.
///
/// Throws   KSetupFailure for one that is not known
std::string ArchitectureOfHead(const std::string& head);

/// Verifies a bundle and unpacks what it has for each of its architectures below a directory, from where
/// it is packed again. `isSigned` is whether what is made of it will be: a bundle whose
/// kit is signed is refused without that.
///
/// Throws   KSetupFailure
std::vector<KBundlePart>
TakeBundleApart(const std::string& file, const std::filesystem::path& below, bool isSigned);

/// Takes away what is made anew: the seal, its signature and, where that `isSigned`, the key.
///
/// Throws   KSetupFailure
void RemoveSeal(const std::string& kit, bool isSigned);

/// Refuses parts that are not of one kit, whose files are these; the first part is of this machine. The
/// program, its libraries and their texts may differ, and what comes with a bundle that the kit has not.
///
/// Throws   KSetupFailure that names the first file that differs, or an architecture that is there twice
void RequireOneKit(const std::vector<KBundlePart>& parts, const KKitListing& kit);

} // namespace KSETUP
