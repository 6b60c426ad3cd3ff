// SPDX-License-Identifier: MIT
#include "KDisk.h"

#include "Files.h"
#include "KMachineState.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace KSWEEP {

namespace {

constexpr std::size_t pieceSize = 16384;
constexpr int digs = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;

void Check(long result, const std::string& what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/// Closes it with its scope.
class KOpen {
  public:
    KOpen(const std::string& path, int flags) : file(::open(path.c_str(), flags, 0600)) {
        Check(file, path);
    }
    ~KOpen() { ::close(file); }
    KOpen(const KOpen&) = delete;
    KOpen& operator=(const KOpen&) = delete;
    int Get() const noexcept { return file; }

  private:
    int file;
};

std::size_t PiecesOf(int image) {
    struct stat status {};
    Check(::fstat(image, &status), "image of a disk");
    return static_cast<std::size_t>(status.st_size) / pieceSize;
}

/// The pieces in which not all is a hole, as [first, behind the last).
struct KExtent {
    std::size_t first = 0;
    std::size_t last = 0;
};

std::vector<KExtent> ExtentsOf(int image) {
    std::vector<KExtent> extents;
    const auto size = static_cast<off_t>(PiecesOf(image) * pieceSize);
    for (off_t at = 0; at < size;) {
        const off_t data = ::lseek(image, at, SEEK_DATA);
        if (data < 0 && errno == ENXIO) {
            break;
        }
        Check(data, "holes of an image");
        at = ::lseek(image, data, SEEK_HOLE);
        Check(at, "holes of an image");
        const auto first = static_cast<std::size_t>(data) / pieceSize;
        const std::size_t last = (static_cast<std::size_t>(at) + pieceSize - 1) / pieceSize;
        if (!extents.empty() && extents.back().last >= first) {
            extents.back().last = last;
        } else {
            extents.push_back({first, last});
        }
    }
    return extents;
}

const std::string& Zeros() {
    static const std::string zeros(pieceSize, '\0');
    return zeros;
}

} // namespace

KDisk::KDisk(unsigned number, std::string itsRoot)
    : device("/dev/throwaway-disk" + std::to_string(number)),
      root(std::move(itsRoot)),
      image(::open(("/run/disks/" + std::to_string(number)).c_str(), O_RDWR | O_CLOEXEC)) {
    if (image < 0) {
        throw std::runtime_error(
            "the machine has not enough disks; run it by ./dev faults, which gives it some"
        );
    }
    void* const mapped =
        ::mmap(nullptr, PiecesOf(image) * pieceSize, PROT_READ, MAP_SHARED, image, 0);
    Check(mapped == MAP_FAILED ? -1 : 0, "map a disk"); // NOLINT(*-no-int-to-ptr): the system's own
    bytesOf = static_cast<const char*>(mapped);
    std::filesystem::create_directories(root);
    struct stat status {};
    Check(::stat(device.c_str(), &status), device);
    counters = "/sys/dev/block/" + std::to_string(major(status.st_rdev)) + ":" +
               std::to_string(minor(status.st_rdev)) + "/stat";
}

KDisk::~KDisk() {
    if (isMounted) {
        ::umount2(root.c_str(), MNT_DETACH);
    }
    ::close(image);
}

void KDisk::Format(const KFileSystem& fileSystem) const {
    Forget();
    Check(
        ::fallocate(
            image,
            FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
            0,
            static_cast<off_t>(PiecesOf(image) * pieceSize)
        ),
        "empty a disk"
    );
    Shell(fileSystem.make + " " + device + " >/dev/null 2>&1");
    Forget();
    Write(Read({})); // what is zeros only becomes a hole, and costs no time later
}

void KDisk::Mount(const KFileSystem& fileSystem) {
    const auto mount = [&] {
        const char* const options = fileSystem.options.c_str();
        return ::mount(device.c_str(), root.c_str(), fileSystem.type.c_str(), 0, options);
    };
    int mounted = mount();
    // btrfs knows a file system for a moment longer by the disk that it was on before.
    for (int tries = 0; mounted < 0 && errno == EEXIST && tries < 50; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        mounted = mount();
    }
    Check(mounted, "mount " + fileSystem.name);
    isMounted = true;
}

void KDisk::Unmount() {
    if (isMounted) {
        Check(::umount(root.c_str()), "umount " + root);
        isMounted = false;
    }
    Forget();
}

/// What the kernel remembers of the device would hide what is written past it.
void KDisk::Forget() const {
    const KOpen opened(device, O_RDONLY | O_CLOEXEC);
    Check(::ioctl(opened.Get(), BLKFLSBUF, 0), "flush " + device);
}

std::string KDisk::CountWrites() const {
    std::ifstream file(counters);
    std::array<std::string, 14> numbers; // its words, of which the first four are of reads
    for (std::string& number : numbers) {
        if (!(file >> number)) {
            throw std::runtime_error("cannot read " + counters);
        }
    }
    return numbers[4] + " " + numbers[6] + " " + numbers[11] + " " + numbers[13];
}

KDiskContent KDisk::Read(const KDiskContent& former) const {
    KDiskContent content;
    for (const KExtent& extent : ExtentsOf(image)) {
        content.pieces.resize(extent.last);
        for (std::size_t at = extent.first; at < extent.last; ++at) {
            const std::string_view bytes(bytesOf + at * pieceSize, pieceSize);
            const bool isKnown = at < former.pieces.size() && former.pieces[at];
            if (isKnown && *former.pieces[at] == bytes) {
                content.pieces[at] = former.pieces[at];
            } else if (bytes != Zeros()) {
                content.pieces[at] = std::make_shared<const std::string>(bytes);
            }
        }
    }
    return content;
}

void KDisk::Write(const KDiskContent& content) const {
    Forget();
    std::vector<bool> isHole(content.pieces.size(), true);
    for (const KExtent& extent : ExtentsOf(image)) {
        isHole.resize(std::max(isHole.size(), extent.last), true);
        for (std::size_t at = extent.first; at < extent.last; ++at) {
            isHole[at] = false;
        }
    }
    for (std::size_t at = 0; at < isHole.size(); ++at) {
        const std::string* const wanted =
            at < content.pieces.size() ? content.pieces[at].get() : nullptr;
        const std::string_view bytes(bytesOf + at * pieceSize, isHole[at] ? 0 : pieceSize);
        const auto place = static_cast<off_t>(at * pieceSize);
        if (wanted != nullptr && *wanted != bytes) {
            Check(::pwrite(image, wanted->data(), pieceSize, place), "write an image");
        } else if (wanted == nullptr && !isHole[at]) {
            Check(::fallocate(image, digs, place, pieceSize), "empty an image");
        }
    }
    Forget();
}

void KDisk::FlushUnrelated() {
    const std::string directory = root + "/unrelated";
    ::mkdir(directory.c_str(), 0700); // there it is after the first time
    const KOpen file(
        directory + "/" + std::to_string(++unrelated), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC
    );
    Check(::write(file.Get(), "x", 1), "write an unrelated file");
    Check(::fsync(file.Get()), "flush an unrelated file");
}

void KDisk::FlushAll() const {
    const KOpen directory(root, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    Check(::syncfs(directory.Get()), "flush a disk");
}

} // namespace KSWEEP
