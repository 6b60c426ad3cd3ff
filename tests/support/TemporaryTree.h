// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>
#include <sys/types.h>

namespace KTEST {

/// A directory of its own for one test, below $TMPDIR or /tmp, gone with all it holds when the
/// object ends (read-only directories too). It uses system calls only, nothing of what is tested.
///
/// Every path is relative to the directory; "" is the directory itself. Modes are set exactly,
/// whatever the umask. Links are never followed.
///
/// Throws   std::system_error with the path when the system refuses: the test then fails with it
/// Thread   one at a time
///
///     TemporaryTree tree;
///     tree.Write("kit/lib/a.so", "bytes", 0755);
///     EXPECT_THAT(tree.List(), ElementsAre("d 0755 kit", "d 0755 kit/lib", …));
class TemporaryTree {
  public:
    TemporaryTree();
    ~TemporaryTree();
    TemporaryTree(const TemporaryTree&) = delete;
    TemporaryTree& operator=(const TemporaryTree&) = delete;

    /// Writes a file, over one that is there, with missing parents (0755).
    void Write(std::string_view relative, std::string_view bytes, mode_t mode = 0644);
    /// Makes a directory with missing parents (0755), or sets the mode of one that is there.
    void Directory(std::string_view relative, mode_t mode = 0755);
    /// Makes a symbolic link, with missing parents. `target` stands as it is given.
    void Link(std::string_view relative, std::string_view target);
    void Fifo(std::string_view relative, mode_t mode = 0644);
    /// Listens on nothing: a socket as a file system entry.
    void Socket(std::string_view relative);
    void SetMode(std::string_view relative, mode_t mode);
    void SetOwner(std::string_view relative, uid_t owner, gid_t group);
    /// Removes an entry, a directory with all it holds. A missing one is no error.
    void Remove(std::string_view relative);

    /// The absolute path, without a separator at its end.
    std::string Path(std::string_view relative = "") const;
    /// The bytes of a file, links on the way and at the end followed.
    std::string Read(std::string_view relative) const;
    /// True for anything that stands there, a dangling link too.
    bool Exists(std::string_view relative) const;
    /// The bits 07777.
    mode_t Mode(std::string_view relative) const;
    std::string LinkTarget(std::string_view relative) const;
    struct stat Status(std::string_view relative) const;

    /// All that stands below `relative`, one line an entry, sorted by path:
    ///
    ///     d 0755 lib
    ///     f 0644 lib/a.conf "key=value\n"
    ///     f 0755 lib/a.so 200000 bytes 8c1f0a2be4d5f013
    ///     l lib/b.so -> a.so
    ///     p 0644 queue
    ///
    /// Contents of up to 80 bytes stand as text, longer ones as size and digest (DigestOf). What is
    /// not printable ASCII is escaped, in names too.
    std::vector<std::string> List(std::string_view relative = "") const;

    /// 64 bits that tell two contents apart, as List writes them.
    static std::string DigestOf(std::string_view bytes);
    /// A text as List writes it: `\n`, `\t`, `\"`, `\\`, and `\xff` for other bytes.
    static std::string Escaped(std::string_view bytes);

  private:
    std::string root;
};

/// Bytes without a pattern that a wrong offset could hide in; the same for the same seed.
std::string ArbitraryBytes(std::size_t count, std::uint64_t seed = 1);

} // namespace KTEST
