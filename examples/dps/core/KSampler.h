// SPDX-License-Identifier: MIT
#pragma once

#include "dps/core/Export.h"

#include <sup++/KString.h>

#include <string>

namespace DPS {

/// Takes samples of the machine and words them as the resources say: text/LANGUAGE.ini holds the
/// sentence, unit/UNIT.ini the unit of memory.
///
///     KSampler sampler("/opt/dps/resource/", "en", "mib");
///     std::cout << sampler.Take() << "\n"; // load 0.42, 5120 MiB free
class DPS_EXPORT KSampler {
  public:
    /// Throws   KSUP::KError when a resource cannot be read, std::runtime_error for a unit that has
    ///          no size
    KSampler(
        const KSUP::KString& resources, const KSUP::KString& language, const KSUP::KString& unit
    );

    /// One sample, in words.
    ///
    /// Throws   std::runtime_error when the system does not tell
    std::string Take() const;

  private:
    std::string sentence;
    std::string unitName;
    unsigned unitKib = 1;
};

} // namespace DPS
