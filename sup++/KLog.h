// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KLogBase.h>

namespace KSUP {

/// A log in a file.
class SUP_EXPORT KLog : public KLogBase {
  public:
    KLog();
    ~KLog() override;
};

} // namespace KSUP
