// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <optional>
#include <string>
#include <string_view>

namespace KSETUP {

/// What the signer of a kit or a bundle says that it is: the trusted comment of the signature.
struct KKitStatement {
    std::string product; ///< its name, such as "Hello"
    std::string service; ///< by which the machine knows it
    std::string version;
    unsigned buildNumber = 0;

    /// That of the product data that is loaded.
    static KKitStatement OfProductData();
    /// Nothing for a comment that ToComment would not have written: a signature is good for a kit
    /// only if who made it meant a kit.
    static std::optional<KKitStatement> FromComment(std::string_view comment);
    /// In one line: "product:Hello", "service:hello", "version:1.5" and "build:9" with tabs between,
    /// which no value has.
    std::string ToComment() const;
    /// As "Hello 1.5 (build 9)".
    KText ToWords() const;

    bool operator==(const KKitStatement&) const = default;
};

} // namespace KSETUP
