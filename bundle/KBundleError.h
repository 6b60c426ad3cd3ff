// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace KBUNDLE {

/// Why a bundle could not be read, written or unpacked: what, where, and what the system said.
class KBundleError : public std::runtime_error {
  public:
    enum class Kind : std::uint8_t {
        NoBundle,          ///< a file of another kind
        Damaged,           ///< it ends too early, or is not what was packed
        CannotRead,        ///< the system refuses to read it, or what is to be packed
        CannotWrite,       ///< no room, or a place that cannot be written to
        OtherArchitecture, ///< it has no program for this one
        Stopped            ///< whoever asked for it wants it no more
    };

    KBundleError(Kind itsKind, const std::string& message)
        : std::runtime_error(message),
          kind(itsKind) {}

    Kind GetKind() const noexcept { return kind; }

  private:
    Kind kind;
};

/// "PATH: REASON.", for a system call that failed with this errno.
[[noreturn]] void FailOnRead(const std::string& path, unsigned error);
/// The same of a file or directory that is being written.
[[noreturn]] void FailOnWrite(const std::string& path, unsigned error);

} // namespace KBUNDLE
