// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace KTEST {

/// A line of a case that cannot be; the text names file and line.
class CaseError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// One `== NAME ARGUMENTS` with the lines below it.
struct CaseSection {
    std::string name;
    std::string arguments;
    std::vector<std::string> lines;
    unsigned lineNumber = 0; ///< of its heading
};

/// A case as it stands in its file: README.md in tests/cases tells what the sections mean. Blank
/// lines at a section's end belong to none.
struct CaseFile {
    std::string path;
    std::vector<CaseSection> sections;

    /// Throws   CaseError when the file cannot be read or has lines before its first heading
    static CaseFile Load(const std::string& path);
    /// The file's text, with one blank line between sections.
    std::string Text() const;
    /// "size 200000 7" by "200000 bytes 8c1f…", for every size that the case mentions.
    std::map<std::string, std::string> Sizes() const;

    [[noreturn]] void Refuse(unsigned lineNumber, const std::string& why) const;
};

/// A line of a tree, as start, change and tree sections have it.
struct TreeLine {
    char kind = ' '; ///< d, f, l, p, - (remove) or = (as before)
    unsigned mode = 0;
    unsigned owner = 0; ///< of `f 0644 65534:0 PATH …`; root's where the line says nothing
    unsigned group = 0;
    std::string path;
    std::string bytes;  ///< of a file
    std::string target; ///< of a link
    std::string digest; ///< of a file whose contents are not given: "200000 bytes 8c1f…"

    /// Throws   CaseError (without place) for a line that is none
    static TreeLine Parse(const std::string& line);
    /// As TemporaryTree::List writes it, with contents up to so many bytes as text.
    std::string Listed(std::size_t longestText = 80) const;

  private:
    void SetMode(const std::string& text);
};

} // namespace KTEST
