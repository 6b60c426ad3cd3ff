// SPDX-License-Identifier: MIT
#include "dps/core/KSettings.h"

using KSUP::KString;

namespace DPS {

KSettings::KSettings(const KString& configuration) {
    configured.Open(configuration);
    const KString file = configured.GetString("Product", "Defaults", "");
    if (!file.IsEmpty()) {
        defaults.Open(file);
    }
}

KString
KSettings::GetText(const KString& section, const KString& key, const KString& otherwise) const {
    return configured.GetString(section, key, defaults.GetString(section, key, otherwise));
}

unsigned
KSettings::GetNumber(const KString& section, const KString& key, unsigned otherwise) const {
    return configured.GetNumber<unsigned>(
        section, key, defaults.GetNumber<unsigned>(section, key, otherwise)
    );
}

} // namespace DPS
