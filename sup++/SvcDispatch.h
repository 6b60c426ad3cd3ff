// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// How a thread that polls is paced.

#include <sup++/Export.h>

/// Called once per pass of a wait loop: waits up to 10 ms, and returns at once when a thread of the
/// library ends or is asked to end, also when that happened since this thread's last call. So a
/// loop neither burns a processor nor delays the end that it waits for.
///
/// Returns  0
/// Thread   any
SUP_EXPORT unsigned SvcPollingDispatch() noexcept;
