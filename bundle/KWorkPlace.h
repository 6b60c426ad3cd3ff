// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <bundle/UnpackBundle.h>
#include <sys/files/KDescriptor.h>

namespace KBUNDLE {

/// Directories in which a bundle may be unpacked, the best first: on the file system of the product's
/// place, where files can be shared with what is installed; then those that systems have for such.
std::vector<std::string> WorkPlacesFor(const std::string& productPlace);

/// Deletes what killed runs left in these places: directories that are called as a KWorkPlace is, with
/// its mode, of the same user, on which nobody holds a lock; and those that a script put a program into
/// an hour ago. Nothing in a place where others could exchange what was looked at.
void RemoveLeftovers(const std::vector<std::string>& places);

/// What a process is left by the one that started it is opened early there, so its number is below this.
constexpr int mostHeld = 256;

/// The lock of the KWorkPlace that this is, or that this lies directly in, where this process has it: by an
/// object of its own, or left to it by the process that started it.
///
/// Returns  an open descriptor, which stays whose it is; -1 where there is none
int FindLockOf(const std::string& directory);

/// Bytes and entries that are to be free beside what is needed.
constexpr std::uint64_t bytesToSpare = std::uint64_t{1} << 20U;
constexpr std::uint64_t entriesToSpare = 1; // the directory itself

/// A directory that nobody else can enter, with a lock on it that lasts as long as this process or
/// one that it left the descriptor to. Deleted, with all that is in it, with the object.
///
/// Thread   one at a time
class KWorkPlace {
  public:
    /// Makes one in the first of the places that has room, runs programs and that nobody else can
    /// change.
    ///
    /// Throws   KBundleError (CannotWrite), which says of each place why it is none
    KWorkPlace(
        const std::vector<std::string>& places,
        const std::function<KBundleNeeds(std::uint64_t blockBytes)>& needs
    );
    /// Makes one in this place, whatever it is.
    ///
    /// Throws   KBundleError (CannotWrite)
    explicit KWorkPlace(const std::string& place);
    ~KWorkPlace();
    KWorkPlace(const KWorkPlace&) = delete;
    KWorkPlace& operator=(const KWorkPlace&) = delete;

    const std::string& GetPath() const noexcept { return path; }
    int GetLock() const noexcept { return lock.Get(); }
    /// Leaves the directory to the process that this one was forked from; the lock is of both.
    void Leave() noexcept { path.clear(); }

  private:
    unsigned MakeIn(const std::string& place);

    std::string path;
    KSYS::KDescriptor lock;
};

} // namespace KBUNDLE
