// SPDX-License-Identifier: MIT
#include <setup/plan/AddedLines.h>
#include <setup/rules/KMaskedProfileRule.h>
#include <setup/script/SecretNames.h>

namespace KSETUP {

KSUP::KString KMaskedProfileRule::Description() const {
    return maskedKey.IsEmpty() ? KProfileRule::Description()
                               : "Put profile option " + maskedKey + "=" + maskedValue;
}

void KMaskedProfileRule::ParseRule(const std::vector<KSUP::KString>& fields) {
    KProfileRule::ParseRule(fields);
    constexpr std::size_t sectionAt = 2;
    constexpr std::size_t keyAt = 3;
    constexpr std::size_t valueAt = 4;
    if (fields.size() > valueAt) {
        const KSUP::KString name = ExpandMacros(fields[keyAt]);
        const KSUP::KString group = ExpandMacros(fields[sectionAt]);
        if (IsAddedValue(fields[valueAt].c_str()) || MayBeSecret(group.c_str(), name.c_str())) {
            maskedKey = name;
        }
    }
}

} // namespace KSETUP
