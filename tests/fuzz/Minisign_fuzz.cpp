// SPDX-License-Identifier: MIT
// Public keys, signatures and what a signer says of a kit: read exactly where a slow model that is
// strict reads them, written again as they were, and nothing but the maker's signature fits.
#include "Fuzz.h"

#include <setup/KSetupFailure.h>
#include <setup/files/KBlake2b.h>
#include <setup/kit/KKitStatement.h>
#include <setup/kit/KMinisign.h>

#include <algorithm>
#include <cstdio>
#include <optional>

namespace {

using KTEST::Require;

constexpr char path[] = "fuzz";
constexpr std::size_t longestText = 16 * 1024;

// Made by minisign 0.11 of a file with "hi\n".
constexpr char makersKey[] = "untrusted comment: minisign public key 6D66D82A5D1E8A3C\n"
                             "RWQ8ih5dKthmbSKkpUJPGC5LNl3q5GawvUIQuRozLRG9YBCLwA0fAUwB\n";
constexpr char makersSignature[] =
    "RUQ8ih5dKthmbeKAzo6xf4swJvRWEWAEkC4TOgO68YqEAklrOYYdEBcOtJJkQQjqHyiaIRvzl/"
    "IGqC/CEWTOGoSVI4F75Yq/4wE=";
constexpr char makersComment[] = "trusted comment: a:b\tc:d";

/// By RFC 4648, bit by bit; nothing for what an encoder would not have written of so many bytes.
std::optional<std::string> PlainFromBase64(std::string text, std::size_t count) {
    static const std::string letters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string padding;
    while (!text.empty() && text.back() == '=') {
        text.pop_back();
        padding += '=';
    }
    std::string bits;
    for (const char letter : text) {
        const std::size_t value = letters.find(letter);
        if (value == std::string::npos) {
            return std::nullopt;
        }
        for (std::size_t bit = 32; bit != 0; bit /= 2) {
            bits += (value & bit) != 0 ? '1' : '0';
        }
    }
    const std::size_t left = bits.size() % 8;
    const std::string expectedPadding = left == 4 ? "==" : left == 2 ? "=" : "";
    if (left == 6 || padding != expectedPadding || bits.size() / 8 != count ||
        bits.find('1', bits.size() - left) != std::string::npos) {
        return std::nullopt;
    }
    std::string bytes;
    for (std::size_t at = 0; at + 8 <= bits.size(); at += 8) {
        bytes += static_cast<char>(std::stoi(bits.substr(at, 8), nullptr, 2));
    }
    return bytes;
}

/// The lines of a text that minisign could have written.
std::optional<std::vector<std::string>> PlainLines(const std::string& text, std::size_t count) {
    std::vector<std::string> lines = KTEST::PiecesOf(text, '\n');
    const bool isText =
        text.find('\0') == std::string::npos && text.find('\r') == std::string::npos;
    if (!isText || text.size() > longestText || !lines.back().empty() ||
        lines.size() != count + 1 || !lines[0].starts_with("untrusted comment: ")) {
        return std::nullopt;
    }
    lines.pop_back();
    return lines;
}

std::string PlainId(const std::string& bytes) {
    std::string id;
    for (std::size_t at = 9; at >= 2; --at) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02X", static_cast<unsigned char>(bytes.at(at)));
        id += digits;
    }
    return id;
}

void ReadKey(const std::string& text) {
    const auto lines = PlainLines(text, 2);
    const auto bytes = lines ? PlainFromBase64((*lines)[1], 42) : std::nullopt;
    const bool isKey = bytes && bytes->starts_with("Ed");
    try {
        const KSETUP::KPublicKey key = KSETUP::KPublicKey::FromText(text, path);
        Require(isKey, "a key that is taken is one that minisign could have written");
        Require(key.GetId() == PlainId(*bytes), "a key has the id that is in it");
        const std::string written = key.ToText();
        Require(
            written == "untrusted comment: minisign public key " + PlainId(*bytes) + "\n" +
                           (*lines)[1] + "\n",
            "a key is written as it was read"
        );
        Require(KSETUP::KPublicKey::FromText(written, path) == key, "a key reads back");
    } catch (const KSETUP::KSetupFailure&) {
        Require(!isKey, "a key that minisign could have written is taken");
    }
}

bool IsByte(char letter) {
    const auto byte = static_cast<unsigned char>(letter);
    return byte >= 0x20 && byte != 0x7F;
}

/// Files of the product are called by its service: the name may neither lead elsewhere nor be too long.
bool IsNameOfFiles(const std::string& service) {
    static const std::string letters =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.:";
    return service.size() <= 200 && service.find_first_not_of(letters) == std::string::npos &&
           service[0] != '.' && service[0] != '-';
}

bool IsStatement(const std::string& comment) {
    static const char* const names[] = {"product:", "service:", "version:", "build:"};
    const std::vector<std::string> fields = KTEST::PiecesOf(comment, '\t');
    if (fields.size() != std::size(names)) {
        return false;
    }
    for (std::size_t at = 0; at < fields.size(); ++at) {
        const std::string name = names[at];
        if (!fields[at].starts_with(name) || fields[at].size() == name.size() ||
            !std::all_of(fields[at].begin(), fields[at].end(), IsByte)) {
            return false;
        }
    }
    const std::string service = fields[1].substr(8);
    const std::string build = fields[3].substr(6);
    const bool isLong = build.size() > 10 || (build.size() == 10 && build > "4294967295");
    return IsNameOfFiles(service) && !isLong && (build == "0" || build[0] != '0') &&
           build.find_first_not_of("0123456789") == std::string::npos;
}

void ReadStatement(const std::string& comment) {
    const auto statement = KSETUP::KKitStatement::FromComment(comment);
    Require(statement.has_value() == IsStatement(comment), "a statement is one, or is refused");
    Require(
        !statement || statement->ToComment() == comment, "a statement is written as it was read"
    );
}

void ReadSignature(const std::string& text) {
    const auto lines = PlainLines(text, 4);
    const auto bytes = lines ? PlainFromBase64((*lines)[1], 74) : std::nullopt;
    const bool isSignature = bytes && bytes->starts_with("ED") &&
                             (*lines)[2].starts_with("trusted comment: ") &&
                             PlainFromBase64((*lines)[3], 64);
    try {
        const KSETUP::KSignature made = KSETUP::KSignature::FromText(text, path);
        Require(isSignature, "a signature that is taken is one that minisign could have written");
        Require(made.GetKeyId() == PlainId(*bytes), "a signature names the key that is in it");
        Require(
            "trusted comment: " + made.GetTrustedComment() == (*lines)[2], "a comment is whole"
        );
        static const KSETUP::KPublicKey key = KSETUP::KPublicKey::FromText(makersKey, path);
        static const std::string digest = KSETUP::Blake2b("hi\n");
        const bool isMakers =
            bytes->substr(10) == PlainFromBase64(makersSignature, 74)->substr(10) &&
            (*lines)[2] == makersComment;
        Require(!made.Fits(key, digest) || isMakers, "no signature fits but the maker's");
        ReadStatement(made.GetTrustedComment());
    } catch (const KSETUP::KSetupFailure&) {
        Require(!isSignature, "a signature that minisign could have written is taken");
    }
}

} // namespace

/// The first byte says which it is: "k" a public key, "s" a signature, else a trusted comment.
FUZZ_TARGET(Minisign) {
    const std::string text(input.substr(input.empty() ? 0 : 1));
    if (input.starts_with('k')) {
        ReadKey(text);
    } else if (input.starts_with('s')) {
        ReadSignature(text);
    } else {
        ReadStatement(text);
    }
}
