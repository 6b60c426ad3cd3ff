// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/KMinisign.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include <openssl/evp.h>

namespace KSETUP {

namespace {

constexpr std::size_t idBytes = 8;
constexpr std::size_t keyBytes = 32;
constexpr std::size_t signatureBytes = 64;
constexpr std::size_t algorithmBytes = 2;
constexpr std::string_view algorithm = "Ed";       // of a key, and of a signature over a whole file
constexpr std::string_view hashedAlgorithm = "ED"; // of a signature over its BLAKE2b-512
constexpr std::string_view comment = "untrusted comment: ";
constexpr std::string_view signedComment = "trusted comment: ";
/// What minisign takes at most of a comment; no other text of such a file is longer.
constexpr std::size_t longestText = 16 * 1024;

const unsigned char* Bytes(std::string_view text) noexcept {
    return reinterpret_cast<const unsigned char*>(text.data());
}

/// Nothing for what is not exactly what an encoder writes of `count` bytes.
std::optional<std::string> FromBase64(std::string_view text, std::size_t count) {
    constexpr std::size_t group = 4;
    constexpr std::size_t groupBytes = 3;
    if (text.size() != (count + groupBytes - 1) / groupBytes * group) {
        return std::nullopt;
    }
    std::vector<unsigned char> bytes(text.size());
    if (::EVP_DecodeBlock(bytes.data(), Bytes(text), static_cast<int>(text.size())) < 0) {
        return std::nullopt;
    }
    // The decoder passes over spaces, padding and bits that mean nothing; two texts of one key would
    // be two keys to who compares them.
    std::vector<unsigned char> again(text.size() + 1);
    ::EVP_EncodeBlock(again.data(), bytes.data(), static_cast<int>(count));
    if (!std::equal(text.begin(), text.end(), again.begin())) {
        return std::nullopt;
    }
    return std::string(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
}

std::string ToBase64(const std::string& bytes) {
    std::vector<unsigned char> text(bytes.size() * 2 + 4);
    const int count = ::EVP_EncodeBlock(text.data(), Bytes(bytes), static_cast<int>(bytes.size()));
    return {text.begin(), text.begin() + count};
}

/// As minisign does: a number whose lowest byte comes first.
std::string IdText(std::string_view id) {
    static constexpr const char* digits = "0123456789ABCDEF";
    std::string text;
    for (auto at = id.rbegin(); at != id.rend(); ++at) {
        const auto byte = static_cast<unsigned char>(*at);
        text += digits[byte >> 4U];
        text += digits[byte & 0xFU];
    }
    return text;
}

/// The lines of a text, or nothing when it has another number of them or a byte that is no text's.
std::optional<std::vector<std::string_view>> LinesOf(std::string_view text, std::size_t count) {
    if (text.size() > longestText || !text.ends_with('\n')) {
        return std::nullopt;
    }
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        lines.push_back(text.substr(0, text.find('\n')));
        text.remove_prefix(lines.back().size() + 1);
    }
    const bool isText = std::all_of(lines.begin(), lines.end(), [](std::string_view line) {
        return line.find_first_of(std::string_view("\0\r", 2)) == std::string_view::npos;
    });
    return lines.size() == count && isText ? std::optional(lines) : std::nullopt;
}

[[noreturn]] void Fail(const std::string& path, const std::string& why) {
    throw KSetupFailure(ExitCode::malformedScript, path + ": " + why);
}

} // namespace

KPublicKey KPublicKey::FromText(std::string_view text, const std::string& path) {
    const auto lines = LinesOf(text, 2);
    const auto bytes = lines && (*lines)[0].starts_with(comment)
                           ? FromBase64((*lines)[1], algorithmBytes + idBytes + keyBytes)
                           : std::nullopt;
    if (!bytes || !bytes->starts_with(algorithm)) {
        Fail(path, "no public key of minisign. Take the file NAME.pub that \"minisign -G\" made.");
    }
    KPublicKey key;
    key.id = bytes->substr(algorithmBytes, idBytes);
    key.key = bytes->substr(algorithmBytes + idBytes);
    return key;
}

std::string KPublicKey::GetId() const {
    return IdText(id);
}

std::string KPublicKey::ToText() const {
    return std::string(comment) + "minisign public key " + GetId() + "\n" +
           ToBase64(std::string(algorithm) + id + key) + "\n";
}

bool KPublicKey::Verifies(std::string_view message, std::string_view signature) const {
    const std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> loaded(
        ::EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, Bytes(key), key.size()),
        ::EVP_PKEY_free
    );
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(
        ::EVP_MD_CTX_new(), ::EVP_MD_CTX_free
    );
    return loaded != nullptr && context != nullptr &&
           ::EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, loaded.get()) == 1 &&
           ::EVP_DigestVerify(
               context.get(), Bytes(signature), signature.size(), Bytes(message), message.size()
           ) == 1;
}

KSignature KSignature::FromText(std::string_view text, const std::string& path) {
    const auto lines = LinesOf(text, 4);
    const bool hasComments =
        lines && (*lines)[0].starts_with(comment) && (*lines)[2].starts_with(signedComment);
    const auto bytes = hasComments
                           ? FromBase64((*lines)[1], algorithmBytes + idBytes + signatureBytes)
                           : std::nullopt;
    const auto second = hasComments ? FromBase64((*lines)[3], signatureBytes) : std::nullopt;
    if (bytes && bytes->starts_with(algorithm)) {
        Fail(path, "signed in the way of old. Sign it with minisign 0.10 or newer, without -l.");
    }
    if (!bytes || !second || !bytes->starts_with(hashedAlgorithm)) {
        Fail(path, "no signature of minisign. Get it again from who made it.");
    }
    KSignature made;
    made.keyId = IdText(bytes->substr(algorithmBytes, idBytes));
    made.signature = bytes->substr(algorithmBytes + idBytes);
    made.trustedComment = (*lines)[2].substr(signedComment.size());
    made.commentSignature = *second;
    return made;
}

bool KSignature::Fits(const KPublicKey& key, std::string_view blake2b) const {
    return key.Verifies(blake2b, signature) &&
           key.Verifies(signature + trustedComment, commentSignature);
}

} // namespace KSETUP
