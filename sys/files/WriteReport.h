// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// What the calls of this layer did to entries of the file system, told to one listener at the time
/// it was done. Each copy of this library has its own.

namespace KSYS {

/// What was done to an entry. The support library's public numbers are these.
enum class Written : unsigned {
    File = 1,
    Directory = 2,
    Link = 3,
    FileDeleted = 4, // or a link
    DirectoryDeleted = 5,
    Mode = 6
};

/// `what` is one of Written; `path` as the call that made the change was given it.
using WriteListener = void (*)(void* context, unsigned what, const char* path) noexcept;

/// Sets the listener, the last one set being the only one; null ends it.
///
/// When it returns, the former one does not run and will not again, save where it is called from
/// within a listener.
void SetWriteListener(WriteListener listener, void* context) noexcept;

/// Whether there is a listener: one relaxed load.
[[nodiscard]] bool IsReportingWrites() noexcept;

/// Calls the listener, on this thread and holding no lock. Nobody reports while holding one either.
void ReportWrite(Written what, const char* path) noexcept;

/// Reports a written file at the end of its scope, where it was: declared before the locks under
/// which the file is written.
class ReportedFile {
  public:
    /// Lifetime `filePath` until the end of this
    explicit ReportedFile(const char* filePath) noexcept : path(filePath) {}
    ReportedFile(const ReportedFile&) = delete;
    ReportedFile& operator=(const ReportedFile&) = delete;
    ~ReportedFile() {
        if (isWritten) {
            ReportWrite(Written::File, path);
        }
    }

    bool isWritten = false;

  private:
    const char* path;
};

} // namespace KSYS
