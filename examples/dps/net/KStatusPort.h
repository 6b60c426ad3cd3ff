// SPDX-License-Identifier: MIT
#pragma once

#include "dps/core/Export.h"

#include <string>

namespace DPS {

/// A TCP port of this machine that answers whoever connects with one line, and hangs up.
///
/// Thread   one
class DPS_EXPORT KStatusPort {
  public:
    /// Listens on 127.0.0.1; port 0 means not at all.
    ///
    /// Throws   std::system_error when the port cannot be had
    explicit KStatusPort(unsigned port);
    ~KStatusPort();
    KStatusPort(const KStatusPort&) = delete;
    KStatusPort& operator=(const KStatusPort&) = delete;

    /// To wait on: readable when somebody has connected. -1 without a port.
    int GetDescriptor() const noexcept { return listener; }

    /// Answers one who has connected.
    ///
    /// Returns  false when there was nobody, or whoever it was has gone
    bool Answer(const std::string& line) const noexcept;

  private:
    int listener = -1;
};

} // namespace DPS
