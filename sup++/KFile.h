// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KFileBase.h>

namespace KSUP {

/// A file on disk.
class SUP_EXPORT KFile : public KFileBase {
  public:
    KFile() noexcept;
    ~KFile() override;
};

} // namespace KSUP
