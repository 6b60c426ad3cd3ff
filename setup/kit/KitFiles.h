// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <filesystem>
#include <string>
#include <vector>

#include <sys/types.h>

/// What the makers of kits do with files. All throw KSetupFailure with the path and the reason.
namespace KSETUP {

/// A directory's regular files and what else is in it, as paths from there, sorted by byte.
struct KKitListing {
    std::vector<std::string> files;       ///< also links that lead to files
    std::vector<std::string> directories; ///< not those that links lead to
    std::vector<std::string> others;      ///< what no kit can hold: pipes, links that lead nowhere
};
KKitListing ListKit(const std::filesystem::path& directory);

/// The bytes of a file.
std::string ReadBytes(const std::filesystem::path& path);
/// Replaces a file whole or not at all; the new one has this mode.
void WriteBytes(const std::filesystem::path& path, const std::string& bytes, mode_t mode);
/// Copies a regular file with its permission bits, of those that are `kept`, over a file that stands
/// there.
void CopyBytes(
    const std::filesystem::path& from, const std::filesystem::path& to, mode_t kept = 07777
);
/// Makes one directory, mode 0755, and missing parents.
void MakeDirectories(const std::filesystem::path& path);

/// "PATH: REASON. ADVICE", for a system call that failed: to read, or to write.
[[noreturn]] void FailOn(const std::filesystem::path& path, int error, const KText& advice = {});
[[noreturn]] void FailOnWrite(const std::filesystem::path& path, int error);

/// A new directory in another, deleted with all it holds when it goes out of scope.
class KTemporaryDirectory {
  public:
    explicit KTemporaryDirectory(const std::filesystem::path& parent);
    ~KTemporaryDirectory();
    KTemporaryDirectory(const KTemporaryDirectory&) = delete;
    KTemporaryDirectory& operator=(const KTemporaryDirectory&) = delete;
    const std::filesystem::path& GetPath() const noexcept { return path; }
    /// Leaves it to the process that this one was forked from.
    void Leave() noexcept { path.clear(); }

  private:
    std::filesystem::path path;
};

} // namespace KSETUP
