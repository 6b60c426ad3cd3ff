// SPDX-License-Identifier: MIT
#pragma once

/// Wakes whoever waits in SvcPollingDispatch: a thread of the library ended or was asked to.
namespace KSUP::DispatchEvent {

void Signal() noexcept;

} // namespace KSUP::DispatchEvent
