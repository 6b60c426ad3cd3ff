// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include <bundle/BundleFormat.h>

namespace KBUNDLE {

/// Takes the files of a bundle as they come, in the order of its table.
class KBundleSink {
  public:
    virtual ~KBundleSink() = default;

    virtual void Begin(const KBundleEntry& file) = 0;
    virtual void Add(std::string_view bytes) = 0;
    /// All of it came, and it is what was packed.
    virtual void End(const KBundleEntry& file) = 0;
};

/// A bundle that is being read: its table is in memory, the rest comes through once. What the file says
/// of itself is held against what it is; nothing of it is believed before.
///
/// Thread   one at a time
/// Lifetime borrows the descriptor, which it reads at offsets
class KBundleReader {
  public:
    /// `path` is for errors.
    ///
    /// Throws   KBundleError: NoBundle for a file without an end of one, Damaged, CannotRead
    KBundleReader(int file, const std::string& path);

    const std::string& GetPath() const noexcept { return path; }
    const KBundleTable& GetTable() const noexcept { return table; }
    const KBundleEnd& GetEnd() const noexcept { return end; }

    /// Looks at what is for one architecture only, of a bundle of several; one of a single architecture
    /// is as it is.
    ///
    /// Returns  whether there is something for it
    bool Choose(std::string_view architecture) noexcept;

    /// Hands out those of the first `fileCount` files that are chosen. `shallStop` is asked before each
    /// piece, of 1 MiB at the most.
    ///
    /// Throws   KBundleError: Damaged for a file that is not what the table says, of which some may have
    ///          been handed out; CannotRead; Stopped
    void ReadFiles(
        std::size_t fileCount, KBundleSink& sink, const std::function<bool()>& shallStop = {}
    ) const;

    /// Reads all files, for whatever architecture they are, and hands out none.
    ///
    /// Throws   KBundleError, as ReadFiles
    void VerifyFiles(const std::function<bool()>& shallStop = {}) const;

    /// Whether the program in front is the one that was packed.
    ///
    /// Throws   KBundleError (CannotRead)
    bool IsHeadWhole() const;

    /// The programs in front, each of one architecture; of a bundle of one, what its own file says.
    ///
    /// Throws   KBundleError (Damaged) where that says nothing known, CannotRead
    std::vector<KBundleHead> GetHeads() const;
    /// The bytes of one of them.
    ///
    /// Throws   KBundleError (CannotRead, Damaged)
    std::string ReadHead(const KBundleHead& head) const;

  private:
    [[noreturn]] void FailDamaged(const std::string& why) const;
    std::string ReadPart(std::uint64_t offset, std::uint64_t byteCount) const;
    void ReadFilesOf(
        KArchitectureBits architectures,
        std::size_t fileCount,
        KBundleSink& sink,
        const std::function<bool()>& shallStop
    ) const;
    void ReadTable();

    int file;
    std::string path;
    KBundleEnd end;
    KBundleTable table;
};

} // namespace KBUNDLE
