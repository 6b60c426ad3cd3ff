// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// A second name (a hard link) for a file, in place of a copy of it: when it is as good as one.

#include <string>

#include <sys/stat.h>

namespace KSYS {

/// Whether a file has nothing but bytes, times and permission bits, and this one name: a regular file of
/// this process's user and group, without extended attributes (access lists, capabilities, labels). A
/// link is none. What cannot be told counts as no.
bool IsPlainFile(const std::string& path, struct stat& status);

/// Whether what this process makes in a directory is plain too: nobody else may write there, and it
/// hands on no group, no access list and no label.
bool MakesPlainFiles(const std::string& directory) noexcept;

/// Gives a file of one open directory another name in another one, where none stands; `path` is where
/// that is. Noted and told as a file that was written.
///
/// Returns  0 or errno, with nothing made; EXDEV on another file system or through another mount
[[nodiscard]] unsigned
LinkAnewAt(int from, const char* file, int directory, const char* name, const char* path) noexcept;

} // namespace KSYS
