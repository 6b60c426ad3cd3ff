// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Msg.h>

/// Codes that are not a system call's errno; docs/errors.md explains each to its reader.
namespace KSUP::ErrorCode {

inline constexpr unsigned relativeLink = 16;      ///< a link's target is not absolute
inline constexpr unsigned invalidArgument = 36;   ///< an argument of a call is invalid
inline constexpr unsigned notFound = 64;          ///< no such value, or a link that cannot be read
inline constexpr unsigned cancelled = 66;         ///< the run was stopped on request
inline constexpr unsigned notSuperuser = 99;      ///< the caller is not root
inline constexpr unsigned processFailed = 172;    ///< a process could not be started or stopped
inline constexpr unsigned numberConversion = 176; ///< a text is not a number
inline constexpr unsigned serviceUnknown = 180;   ///< there is no service of that name
inline constexpr unsigned serviceForeign = 181;   ///< a unit file of that name is not ours
inline constexpr unsigned serviceFailed = 182;    ///< systemd or the service itself refused
inline constexpr unsigned serviceTimedOut = 183;  ///< start or stop took longer than allowed
inline constexpr unsigned noServiceManager = 184; ///< systemd does not run here
inline constexpr unsigned serviceManagerLost = 185; ///< systemd cannot be reached by the system bus
inline constexpr unsigned malformedRule = 7000;     ///< an invalid rule line

} // namespace KSUP::ErrorCode

/// The trace levels at which errors are raised.
namespace KSUP::TraceLevel {

inline constexpr TRACE_MESSAGE support = 24; ///< the support library
inline constexpr TRACE_MESSAGE rule = 48;    ///< rules and the record
inline constexpr TRACE_MESSAGE setup = 400;  ///< the installer and loading

} // namespace KSUP::TraceLevel
