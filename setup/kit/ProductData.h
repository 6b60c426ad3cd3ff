// SPDX-License-Identifier: MIT
#pragma once

#include <setup/script/KScript.h>
#include <setup/text/KText.h>

#include <string>
#include <string_view>
#include <vector>

namespace KSETUP {

/// A mistake in product.ini. Texts are as they came: whoever shows them makes them harmless.
struct KProductMistake {
    unsigned line = 1;   ///< in the file
    unsigned column = 1; ///< in bytes
    std::string text;    ///< what is wrong there
    KText message;
    KText advice;
};

/// What is wrong with a kit's product data: a section or key that is missing or misspelt, a value
/// that is none, a declaration that declares nothing (DeclaredValues.h). The libraries would take
/// their defaults instead, and one product for another. In the order of the file.
std::vector<KProductMistake> FindProductMistakes(const KScript& productData);

/// Whether a service's name may have this byte: what systemd.unit(5) allows, without "@", as a
/// template's unit is no service. It begins with neither "-", an option to every program, nor ".".
bool IsServiceNameByte(char byte) noexcept;

/// Whether a service can be called so.
bool IsServiceName(std::string_view name) noexcept;

/// No value has such: it would change what a log or a terminal shows.
bool HasControlCharacter(std::string_view text) noexcept;

} // namespace KSETUP
