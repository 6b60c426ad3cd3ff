// SPDX-License-Identifier: MIT
#include <sup++/KFile.h>

namespace KSUP {

KFile::KFile() noexcept : KFileBase("KFile") {}
KFile::~KFile() = default;

} // namespace KSUP
