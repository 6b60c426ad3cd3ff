// SPDX-License-Identifier: MIT
#pragma once

/// What ins-setup answers its caller; those from 64 on are the ones of sysexits.h.
namespace KSETUP::ExitCode {

inline constexpr int done = 0;
inline constexpr int ruleFailed = 1;
inline constexpr int notInstalled = 3;
inline constexpr int differs = 4; ///< status --verify: what is installed is not as it was left
inline constexpr int changed = 5; ///< done, and something was changed: where that was asked for
/// What is not the product's would be replaced or deleted: nothing was changed.
inline constexpr int conflict = 6;
inline constexpr int usage = 64;
inline constexpr int malformedScript = 65; ///< also a record that cannot be trusted
inline constexpr int noKit = 66;
inline constexpr int noService = 69; ///< no service manager, or a service failed
inline constexpr int internal = 70;
inline constexpr int cannotWrite = 73; ///< no space; a target or an answer cannot be written
inline constexpr int anotherRun = 75;  ///< another run of the same product goes on
inline constexpr int notRoot = 77;
inline constexpr int signalBase = 128; ///< a cancelled run: plus the signal's number

} // namespace KSETUP::ExitCode
