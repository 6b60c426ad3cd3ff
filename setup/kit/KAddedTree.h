// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

namespace KSETUP {

/// A directory tree that is to become rules: looked at once, no file is read.
///
///     const KAddedTree tree("/home/me/build/tree");
///     tree.RefuseUnlessExpressible();
class KAddedTree {
  public:
    /// Throws   KSetupFailure when it is no directory, or cannot be read
    explicit KAddedTree(const std::string& directory);

    /// Whose an entry is to be, and who may do what. What is the caller's own becomes root's.
    struct Rights {
        mode_t mode = 0;           ///< as it is to be installed
        bool lostWriting = false;  ///< it had the right to write for group or others
        std::string owner{"root"}; ///< a name, or a number without one
        std::string group{"root"}; ///< likewise
    };
    struct File {
        std::string name;
        Rights rights;
    };
    struct Directory {
        Rights rights;
        std::vector<File> files;                  ///< sorted by name, by byte
        std::map<std::string, std::string> links; ///< names, and where they lead
    };

    const std::string& GetRoot() const noexcept { return root; }
    /// The name by which the kit knows it: that of its directory.
    std::string GetName() const;
    /// By path from the root, "" for the root itself; parents before what is in them.
    const std::map<std::string, Directory>& GetDirectories() const noexcept { return directories; }
    /// Whether a path from the root is a file or a link.
    bool HasFile(const std::string& relative) const;
    std::size_t GetFileCount() const;
    std::size_t GetLinkCount() const;

    /// Throws   KSetupFailure with a list of what cannot be written as rules
    void RefuseUnlessExpressible() const;

  private:
    void Scan(const std::string& relative);
    void ScanEntry(Directory& directory, const std::string& relative, const std::string& name);
    void Complain(const std::string& relative, const KText& why);

    std::string root;
    std::map<std::string, Directory> directories;
    std::vector<KText> complaints;
};

} // namespace KSETUP
