// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include <sys/files/KDescriptor.h>
#include <sys/types.h>

/// Where the processes of a user keep their locks. A lock on what others can open is theirs to hold
/// too, for ever, so these are files in a directory that only their user can enter.
namespace KSYS {

/// The directories for it, the best first. A later one is taken only where an earlier one is missing
/// and cannot be made.
struct LockPlaces {
    uid_t user = 0; ///< whose they have to be
    std::vector<std::string> directories;

    /// Of root /run/ins++, of another user /run/user/UID/ins++. For a system that has no /run or one
    /// that is read-only, as where an image is made, of root /var/lib/ins++.locks; then /tmp/ins++-UID,
    /// where others may lay something first, which is refused.
    static LockPlaces Of(uid_t user);
    static LockPlaces OfThisUser();
};

enum class MissingPlace { IsMade, StaysMissing };

/// Opens the directory that counts. It belongs to the user, and nobody else may do anything there.
///
/// `path` is the one that was opened or that failed; empty when there is none
/// Returns  0; ENOENT where there is none and none is to be made, or can be; ENOLCK when what stands
///          at `path` is not the user's alone; else errno
/// Throws   std::bad_alloc
[[nodiscard]] unsigned OpenLockPlace(
    const LockPlaces& places, MissingPlace missing, KDescriptor& directory, std::string& path
);

/// What is wrong with a place for locks that was refused with ENOLCK, and what to do.
std::string DescribeRefusedPlace(const std::string& path);

} // namespace KSYS
