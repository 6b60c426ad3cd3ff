// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/// Message catalogues as files, made by gencat(1).
namespace KSYS {

/// The directory of the library or program that holds `address`, absolute and without links; empty
/// when the system does not say.
std::string ModuleDirectory(const void* address);

/// The languages to look for, the best first, such as "de_AT", "de": the program's own locale for
/// messages if it has set one, else what LC_ALL, LC_MESSAGES or LANG say. None for "C".
std::vector<std::string> MessageLanguages();

/// One open file, for the life of the process: its texts are handed out as pointers.
class KCatalogueFile {
  public:
    /// Opens the file at an absolute path; a second time it answers with what is open.
    ///
    /// Returns  null when there is none or it is no catalogue
    /// Throws   std::bad_alloc
    /// Thread   one at a time
    static const KCatalogueFile* Open(const std::string& path);

    /// Null when the file does not have the message.
    const char* GetText(unsigned set, unsigned message) const noexcept;

  private:
    explicit KCatalogueFile(void* opened) noexcept : handle(opened) {}

    void* handle;
};

} // namespace KSYS
