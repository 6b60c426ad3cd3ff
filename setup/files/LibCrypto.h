// SPDX-License-Identifier: MIT
#pragma once

namespace KSETUP {

/// Makes libcrypto ready. Where the memory for that is missing it does not say so, and its calls
/// that follow crash.
///
/// Throws   std::bad_alloc
void RequireLibCrypto();

} // namespace KSETUP
