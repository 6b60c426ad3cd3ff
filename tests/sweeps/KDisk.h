// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace KSWEEP {

/// A file system that a disk may have.
struct KFileSystem {
    std::string name; ///< as it is told and chosen by
    std::string type;
    std::string make;    ///< what makes it; the device follows
    std::string options; ///< what it is mounted with
};

/// What a disk holds, in pieces, up to the last that has anything. Contents that were read one after the other share what they have in
/// common, so many of them need little room, and the same ones are known by it.
struct KDiskContent {
    std::vector<std::shared_ptr<const std::string>> pieces; ///< none where all bytes are 0

    bool operator==(const KDiskContent& other) const { return pieces == other.pieces; }
};

/// A disk of the throwaway machine. What it holds at a moment is what would be there after a loss of
/// power: what the kernel has handed over to it, and nothing of what it still keeps in memory.
class KDisk {
  public:
    /// The one with a number, which is mounted at `root`.
    ///
    /// Throws   std::runtime_error when the machine has no such disk
    KDisk(unsigned number, std::string root);
    ~KDisk();
    KDisk(const KDisk&) = delete;
    KDisk& operator=(const KDisk&) = delete;

    const std::string& GetRoot() const noexcept { return root; }
    /// Makes an empty file system.
    ///
    /// Throws   std::runtime_error
    void Format(const KFileSystem& fileSystem) const;
    /// Throws   std::system_error
    void Mount(const KFileSystem& fileSystem);
    /// Throws   std::system_error
    void Unmount();

    /// What it holds now, also while it is mounted. It shares what is as in `former`.
    ///
    /// Throws   std::system_error
    KDiskContent Read(const KDiskContent& former) const;
    /// Changes with each write of the kernel's.
    ///
    /// Throws   std::runtime_error
    std::string CountWrites() const;
    /// Makes it hold that. Not while it is mounted.
    ///
    /// Throws   std::system_error
    void Write(const KDiskContent& content) const;

    /// Brings a new file to the disk that has nothing to do with anything, and whatever the file
    /// system thinks has to come with it.
    ///
    /// Throws   std::system_error
    void FlushUnrelated();
    /// Brings all that was written to the disk.
    ///
    /// Throws   std::system_error
    void FlushAll() const;

  private:
    void Forget() const;

    std::string device;
    std::string counters;
    std::string root;
    int image = -1;
    const char* bytesOf = nullptr; ///< of the image
    bool isMounted = false;
    unsigned unrelated = 0;
};

} // namespace KSWEEP
