// SPDX-License-Identifier: MIT
#include <bundle/KSha256.h>

// The functions that replace these find their method among all that libcrypto has, which would be most
// of a static program.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <new>

#include <openssl/sha.h>

namespace KBUNDLE {

namespace {

SHA256_CTX* Context(void* state) noexcept {
    return static_cast<SHA256_CTX*>(state);
}

} // namespace

KSha256::KSha256() noexcept {
    static_assert(sizeof(SHA256_CTX) <= stateBytes);
    ::SHA256_Init(new (state.data()) SHA256_CTX);
}

void KSha256::Add(std::string_view bytes) noexcept {
    ::SHA256_Update(Context(state.data()), bytes.data(), bytes.size());
}

KSha256Bytes KSha256::End() noexcept {
    KSha256Bytes digest{};
    ::SHA256_Final(digest.data(), Context(state.data()));
    ::SHA256_Init(Context(state.data()));
    return digest;
}

KSha256Bytes Sha256Of(std::string_view bytes) noexcept {
    KSha256 sum;
    sum.Add(bytes);
    return sum.End();
}

} // namespace KBUNDLE
