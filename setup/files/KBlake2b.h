// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include <openssl/types.h>

namespace KSETUP {

/// BLAKE2b-512 of bytes that come in parts: what minisign(1) signs of a file.
///
/// Thread   one at a time
class KBlake2b {
  public:
    /// Throws   KSetupFailure when libcrypto does not have it, as the rest
    KBlake2b();

    void Add(std::string_view bytes);
    /// The 64 bytes; once, and nothing is added after it.
    std::string End();

  private:
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context;
};

/// Of bytes that are all there.
std::string Blake2b(std::string_view bytes);

/// Of a regular file, or of the one that a link leads to.
///
/// Throws   KSetupFailure when it cannot be read, or KSetupStop when `shallStop`, asked before each
///          1 MiB, says so
std::string Blake2bOfFile(const std::string& path, const std::function<bool()>& shallStop = {});

} // namespace KSETUP
