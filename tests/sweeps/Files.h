// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace KSWEEP {

/// \file
/// What all sweeps do with files of their own.

/// Writes a file with missing parents, over one that is there.
void Write(const std::filesystem::path& path, const std::string& bytes, unsigned mode = 0644);

/// The bytes of a file; empty for one that cannot be read.
std::string Read(const std::filesystem::path& path);

/// The same, of what ins-setup keeps for itself without what is another in each run: times, inodes,
/// and the names of runs.
std::string ReadSteady(const std::filesystem::path& path);

/// A shell line that has to succeed.
///
/// Throws   std::runtime_error with the line
void Shell(const std::string& line);

} // namespace KSWEEP
