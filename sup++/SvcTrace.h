// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// Where trace messages go.

#include <sup++/Export.h>
#include <sup++/KTraceLogger.h>
#include <sup++/Msg.h>

/// Called with the context it was registered with, the level and the finished text.
typedef void (*SvcTraceHook)(void* context, TRACE_MESSAGE level, const char* text);

/// Lets a program or a test see every message besides the logger; null ends that. One hook at a
/// time, the last one set.
///
/// Returns  0. When it returns, the former hook is not running and will not run again (save where
///          it is called from that very hook)
/// Thread   any. The hook runs on the thread that says the message, one message at a time, under
///          a recursive lock: it may say messages itself, and must not wait for another thread that
///          does so. What it throws is dropped
SUP_EXPORT unsigned SvcSetTraceHook(SvcTraceHook hook, void* context) noexcept;

/// The process-wide logger; never null, lives as long as the process.
SUP_EXPORT KSUP::KTraceLogger* SvcGetGlobalLogger() noexcept;

/// The word under which messages of a level are traced: "support:", "rule:", "setup:", or "trace:"
/// for any other level. Never null.
SUP_EXPORT const char* SvcMapTraceMask(TRACE_MESSAGE level) noexcept;
