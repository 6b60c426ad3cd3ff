// SPDX-License-Identifier: MIT
#pragma once

#include "dps/core/Export.h"

#include <sup++/KProfile.h>
#include <sup++/KString.h>

namespace DPS {

/// The service's settings, in two layers: what the administrator wrote into the configuration, and
/// behind it the defaults that each version brings along in a file of their own. So an upgrade can
/// replace the defaults and never has to touch what the administrator wrote.
///
///     KSettings settings("/opt/dps/config/dps.ini");
///     const unsigned periodMs = settings.GetNumber("General", "Period", 1000);
class DPS_EXPORT KSettings {
  public:
    /// Throws   KSUP::KError when the configuration, or the file that its option Defaults in section
    ///          [Product] names, cannot be read
    explicit KSettings(const KSUP::KString& configuration);

    KSUP::KString GetText(
        const KSUP::KString& section, const KSUP::KString& key, const KSUP::KString& otherwise
    ) const;
    unsigned
    GetNumber(const KSUP::KString& section, const KSUP::KString& key, unsigned otherwise) const;

  private:
    KSUP::KProfile configured;
    KSUP::KProfile defaults;
};

} // namespace DPS
