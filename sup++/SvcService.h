// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// System services, by name: units of systemd, without ".service". They are what systemd says they
/// are: it is asked over the system bus, never by running its programs, and no wait is without
/// limit. Needs root. `flags` is reserved and must be 0.
///
/// All statuses: 0, errno, or
///
///     36   a name or another invalid argument
///     180  there is no service of that name
///     181  there is a unit file of that name that is not ours
///     182  systemd or the service refused: it did not start, does not stop, cannot be loaded
///     183  the time was up; systemd goes on
///     184  systemd does not run here, as in a container or while an image is built
///     185  systemd cannot be reached, or was lost and not found again
///
/// SvcGetServiceErrorText has a status in words; they also go to the trace logger, with level 24.
///
/// Names are ASCII letters, digits and :-_.\@, without a "-", "." or "@" in front, up to 247 bytes:
/// with ".service" that is systemd's limit.
///
/// Thread   any; a call returns when all is done

#include <sup++/Export.h>

/// Registers a service and enables it: it starts with the next boot, and SvcStartService starts it
/// now. A service that one of these calls made is replaced; one that runs goes on as it was until it
/// is started anew.
///
/// `displayName` is what people read, may be empty. `program` is an absolute path. `arguments` are
/// split at blanks; blanks in single or double quotes stay, and a backslash stands before a quote or
/// a backslash. The program gets them as they stand: "$" and "%" mean nothing.
///
/// With an empty `program` a unit file of that name that is there already, anybody's, is loaded and
/// enabled as it is; where there is none, the link /etc/NAME/NAME is the program.
///
/// Where systemd does not run the unit file and the links that enable it are laid on the disk.
///
/// Returns  as above. The unit file is left when a later step fails, so that it can be looked at
[[nodiscard]] SUP_EXPORT unsigned SvcCreateService(
    unsigned flags,
    const char* name,
    const char* displayName,
    const char* program,
    const char* arguments
) noexcept;

/// Stops a service, with SIGKILL if it does not within 120 s, disables it and forgets it. Its unit
/// file goes if SvcCreateService made it; any other stays.
///
/// Where systemd does not run unit file and links are taken off the disk.
[[nodiscard]] SUP_EXPORT unsigned SvcDeleteService(unsigned flags, const char* name) noexcept;

/// Starts a service, or finds that it runs. A program that ends within the first second has not
/// started.
///
/// Returns  as above; 183 after 120 s, and the service may still come up then
[[nodiscard]] SUP_EXPORT unsigned SvcStartService(unsigned flags, const char* name) noexcept;

/// Stops a service, or finds that it is stopped. It waits for 120 s at most; systemd kills a service
/// that does not stop after the time that its unit file gives, 90 s unless it says otherwise.
[[nodiscard]] SUP_EXPORT unsigned SvcStopService(unsigned flags, const char* name) noexcept;

/// The same, waiting `timeoutMs` milliseconds at most (and up to a second more for a bus that does
/// not answer).
[[nodiscard]] SUP_EXPORT unsigned
SvcStopServiceEx(unsigned flags, const char* name, unsigned timeoutMs) noexcept;

/// Tells the state of a service: 1 stopped, 2 starting, 3 stopping, 4 running. It is left as it is
/// when the call fails.
[[nodiscard]] SUP_EXPORT unsigned
SvcGetServiceStatus(unsigned flags, const char* name, unsigned* state) noexcept;

/// Why the last of these calls that failed on this thread did so, as in "dps.service: there is no
/// such service". Never null; empty before the first failure.
///
/// Lifetime until this thread's next call fails
SUP_EXPORT const char* SvcGetServiceErrorText() noexcept;

/// With 1, starting and stopping a service where systemd does not run is left for the next boot and
/// succeeds, if the service is there. With 0, as it is from the beginning, it is status 184. Where
/// systemd runs this changes nothing.
///
/// Thread   before other threads start and stop services
[[nodiscard]] SUP_EXPORT unsigned
SvcSetOfflineServices(unsigned flags, unsigned leaveForNextBoot) noexcept;

/// Enumerates what was left for the next boot: copies the name of a service into `buffer` of `size`
/// bytes and tells in `state` what it is to be, 4 running or 1 stopped. Each service comes once, with
/// what was asked last; one that was deleted does not. `*cursor` begins as 0.
///
/// Returns  0, 64 when there is no further one, or 36 for an invalid argument or a buffer that
///          is too small
[[nodiscard]] SUP_EXPORT unsigned SvcEnumerateLeftServices(
    unsigned flags, unsigned* cursor, unsigned size, char* buffer, unsigned* state
) noexcept;
