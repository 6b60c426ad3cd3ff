// SPDX-License-Identifier: MIT
#include <setup/files/LibCrypto.h>

#include <new>

#include <openssl/crypto.h>

namespace KSETUP {

void RequireLibCrypto() {
    // Tried once in a process, so that the answer stays.
    static const bool isReady = ::OSSL_LIB_CTX_get0_global_default() != nullptr;
    if (!isReady) {
        throw std::bad_alloc();
    }
}

} // namespace KSETUP
