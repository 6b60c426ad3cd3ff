// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <bundle/UnpackBundle.h>
#include <sys/files/KDescriptor.h>

namespace KBUNDLE {

/// Directories in which a bundle may be unpacked, the best first: on the file system of the product's
/// place, where files can be shared with what is installed; then those that systems have for such.
std::vector<std::string> WorkPlacesFor(const std::string& productPlace);

/// A directory that nobody else can enter, with a lock on it that lasts as long as this process or
/// one that it left the descriptor to. Deleted, with all that is in it, with the object.
///
/// Thread   one at a time
class KWorkPlace {
  public:
    /// Makes one in the first of the places that has room, runs programs and that nobody else can
    /// change. What a former run left in any of them is deleted before: a directory with such a name
    /// and mode, of the same user, that nobody holds a lock on.
    ///
    /// Throws   KBundleError (CannotWrite), which says of each place why it is none
    KWorkPlace(
        const std::vector<std::string>& places,
        const std::function<KBundleNeeds(std::uint64_t blockBytes)>& needs
    );
    ~KWorkPlace();
    KWorkPlace(const KWorkPlace&) = delete;
    KWorkPlace& operator=(const KWorkPlace&) = delete;

    const std::string& GetPath() const noexcept { return path; }
    int GetLock() const noexcept { return lock.Get(); }

  private:
    unsigned MakeIn(const std::string& place);

    std::string path;
    KSYS::KDescriptor lock;
};

} // namespace KBUNDLE
