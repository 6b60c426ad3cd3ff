// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/KFileDigest.h>
#include <setup/files/LibCrypto.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

#include <openssl/evp.h>
#include <sys/files/FileContent.h>

namespace KSETUP {

namespace {

constexpr std::size_t chunkBytes = std::size_t{1} << 20U;

void Check(int result) {
    if (result != 1) {
        throw KSetupFailure(ExitCode::internal, Text("libcrypto does not compute SHA-256 here."));
    }
}

/// Looked up once: each look goes through all that libcrypto has.
const EVP_MD* Method() {
    static const EVP_MD* const method = ::EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return method != nullptr ? method : ::EVP_sha256();
}

} // namespace

std::string HexText(std::span<const std::uint8_t> bytes) {
    static constexpr const char* digits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 0xFU];
    }
    return text;
}

/// A digest that is being computed.
class KDigestSum::Sha256 {
  public:
    Sha256() {
        RequireLibCrypto();
        Check(context != nullptr ? 1 : 0);
        Check(::EVP_DigestInit_ex(context.get(), Method(), nullptr));
    }

    void Add(std::string_view bytes) {
        Check(::EVP_DigestUpdate(context.get(), bytes.data(), bytes.size()));
    }

    std::string End() {
        std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
        unsigned digestBytes = 0;
        Check(::EVP_DigestFinal_ex(context.get(), digest.data(), &digestBytes));
        return HexText({digest.data(), digestBytes});
    }

  private:
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context{
        ::EVP_MD_CTX_new(), ::EVP_MD_CTX_free};
};

KDigestSum::KDigestSum() : sum(std::make_unique<Sha256>()) {}

KDigestSum::~KDigestSum() = default;

void KDigestSum::Add(std::string_view bytes) {
    sum->Add(bytes);
}

std::string KDigestSum::End() {
    return sum->End();
}

std::string DigestBytes(std::string_view bytes) {
    KDigestSum sum;
    sum.Add(bytes);
    return sum.End();
}

KFileDigest
DigestFile(const KSYS::Entry& entry, const std::function<bool()>& shallStop, KWriting writing) {
    KFileDigest result;
    KSYS::KDescriptor file;
    struct stat status {};
    result.errorNumber = KSYS::OpenRegularEntry(entry, O_RDONLY, file, status);
    if (result.errorNumber != 0) {
        return result;
    }
    if (writing == KWriting::Begin) { // the disk works while the sum is made
        KSYS::BeginWriting(file.Get());
    }
    constexpr unsigned permissions = 07777;
    result.mode = status.st_mode & permissions;
    KDigestSum sum;
    // One byte more than the file has: the read that finds its end needs room.
    const std::size_t room = std::min(static_cast<std::size_t>(status.st_size) + 1, chunkBytes);
    const auto chunk = std::make_unique_for_overwrite<char[]>(room);
    for (;;) {
        if (shallStop && shallStop()) {
            result.errorNumber = ECANCELED;
            return result;
        }
        std::size_t bytes = 0;
        result.errorNumber = KSYS::ReadSome(file.Get(), chunk.get(), room, bytes);
        if (result.errorNumber != 0) {
            return result;
        }
        sum.Add({chunk.get(), bytes});
        result.size += bytes;
        // A read that finds room for more than the rest of the file has met its end.
        const auto whole = static_cast<std::uint64_t>(status.st_size);
        if (bytes == 0 || (bytes < room && result.size == whole)) {
            break;
        }
    }
    result.sha256 = sum.End();
    return result;
}

} // namespace KSETUP
