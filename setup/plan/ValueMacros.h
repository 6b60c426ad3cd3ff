// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KSetupKit.h>
#include <setup/plan/KDiskView.h>
#include <setup/script/KMacroContext.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace KSETUP {

/// \file
/// The values that a kit declares, as macros of its script, and what is known of them without asking.

/// Texts by the names of values.
using KValueTexts = std::map<std::string, std::string>;

/// Makes macros of those that have a text, for all of the process. A secret stands for asterisks, until
/// RevealSecrets.
void SetValueMacros(const std::vector<KDeclaredValue>& values, const KValueTexts& texts);

/// Gives the secrets their texts, for the engine's rules: whoever expands a macro before sees asterisks.
void RevealSecrets(const std::vector<KDeclaredValue>& values, const KValueTexts& texts);

/// Whether a field of a profile rule, expanded once, stands for a secret or has one in it.
bool HidesValue(std::string_view field) noexcept;

/// The file of KKeptKit that has the values of an installation, without its secrets.
inline constexpr const char* keptValuesFile = "installed-values.ini";
/// Its text; empty without a value that is to be kept.
std::string KeptValuesText(const std::vector<KDeclaredValue>& values, const KValueTexts& texts);
/// What was kept for the installed product; nothing where that cannot be read.
KValueTexts ReadKeptValues(const std::string& service);

/// What is known of each value without asking.
struct KKnownValues {
    KValueTexts texts; ///< given, or those of the installed product, or defaults
    std::set<std::string>
        standards; ///< the names of those that are defaults, which nobody has chosen
    /// Why one of the installed product cannot be this kit's, by names; it is not in `texts`.
    std::map<std::string, KText> unfit;
};

/// The values that were `given`, else of an installed product those that stand in its configuration
/// where the script puts them, else those that were kept, else the defaults.
KKnownValues FindKnownValues(
    const KSetupKit& kit,
    const KMacroContext& macros,
    const KValueTexts& given,
    bool isInstalled,
    const std::shared_ptr<KDiskView>& view
);

/// The values of a removal: those that were kept, and defaults.
KValueTexts FindRemovalValues(const KSetupKit& kit, const std::string& service);

} // namespace KSETUP
