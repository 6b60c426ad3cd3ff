// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KFileHandle.h>

#include <string>

namespace KSETUP {

/// A name in an open directory (O_PATH). What stands there may be anything, or nothing.
struct KFilePlace {
    KFileHandle directory;
    std::string name;
};

/// Walks to the directory that holds the last component of an absolute path. As root one must not
/// be led astray by a link that another user laid: a link on the way is followed only out of a
/// directory that is root's and that nobody else may write. What stands at the end is not looked
/// at.
///
/// Returns  0 or errno, ELOOP for a link that is not followed
[[nodiscard]] int FindFilePlace(const std::string& path, KFilePlace& place);

} // namespace KSETUP
