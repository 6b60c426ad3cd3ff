// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupStop.h>
#include <setup/files/KBlake2b.h>
#include <setup/files/LibCrypto.h>

#include <array>
#include <system_error>

#include <openssl/evp.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>

namespace KSETUP {

namespace {

constexpr std::size_t blockBytes = std::size_t{1} << 20U;

void RequireBlake(int result) {
    if (result != 1) {
        throw KSetupFailure(
            ExitCode::internal,
            Text("libcrypto does not compute BLAKE2b-512 here, without which no signature can be "
                 "checked. Look at the system's OpenSSL configuration.")
        );
    }
}

void RequireRead(unsigned failed, const std::string& path) {
    if (failed != 0) {
        throw KSetupFailure(
            ExitCode::noKit,
            path + ": " + std::generic_category().message(static_cast<int>(failed)) + "."
        );
    }
}

} // namespace

KBlake2b::KBlake2b() : context(::EVP_MD_CTX_new(), ::EVP_MD_CTX_free) {
    RequireLibCrypto();
    RequireBlake(context != nullptr ? 1 : 0);
    RequireBlake(::EVP_DigestInit_ex(context.get(), ::EVP_blake2b512(), nullptr));
}

void KBlake2b::Add(std::string_view bytes) {
    RequireBlake(::EVP_DigestUpdate(context.get(), bytes.data(), bytes.size()));
}

std::string KBlake2b::End() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned digestBytes = 0;
    RequireBlake(::EVP_DigestFinal_ex(context.get(), digest.data(), &digestBytes));
    return {digest.begin(), digest.begin() + digestBytes};
}

std::string Blake2b(std::string_view bytes) {
    KBlake2b sum;
    sum.Add(bytes);
    return sum.End();
}

std::string Blake2bOfFile(const std::string& path, const std::function<bool()>& shallStop) {
    KSYS::KDescriptor file;
    struct stat status {};
    RequireRead(KSYS::OpenRegular(path.c_str(), file, status), path);
    KBlake2b sum;
    const auto chunk = std::make_unique_for_overwrite<char[]>(blockBytes);
    for (;;) {
        if (shallStop && shallStop()) {
            throw KSetupStop(Text("Stopped on request. Nothing was changed."));
        }
        std::size_t bytes = 0;
        RequireRead(KSYS::ReadSome(file.Get(), chunk.get(), blockBytes, bytes), path);
        if (bytes == 0) {
            return sum.End();
        }
        sum.Add({chunk.get(), bytes});
    }
}

} // namespace KSETUP
