// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/ProductData.h>
#include <setup/script/KScript.h>
#include <setup/text/KText.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace KSETUP {

/// \file
/// The values that an installation needs, as section [values] of product.ini declares them. Each is a macro of
/// the script:
///
///     [values]
///     port=8080                               the default; a value without this line has to be given
///     port.text=Port on which it listens      what whoever installs is asked
///     port.pattern=[0-9]{1,5}                 what all of the value has to match
///     password.secret=yes                     it is not shown, and kept nowhere but where the script puts it

/// The section, here and in a file of --values.
inline constexpr const char* valuesSection = "values";

struct KDeclaredValue {
    std::string name;                    ///< of the macro, without dollars
    std::string text;                    ///< what is asked; the name where the kit has none
    std::optional<std::string> standard; ///< the default
    std::string pattern;                 ///< empty for one that takes any text
    bool isSecret = false;
    /// Whether the script has it nowhere but as the value of profile=put, or in it: there it may hold commas
    /// and dollar signs. Others are taken apart with their lines.
    bool isOptionOnly = true;
    unsigned line = 0; ///< of product.ini, the first one that has the name
};

/// In the order of the file; what is none is left out (FindValueMistakes).
std::vector<KDeclaredValue> ReadDeclaredValues(const KScript& productData);

/// What is wrong with the declarations: keys that mean nothing, names that are the engine's own, patterns that
/// are none, defaults that do not match. In the order of the file.
std::vector<KProductMistake> FindValueMistakes(const KScript& productData);

/// Why a text cannot be the value, "it has to match [0-9]+"; empty where it can. Never with the text in it.
KText WhyNotValue(const KDeclaredValue& value, std::string_view text);

/// A place in a script that has a declared value's macro.
struct KValueUse {
    const KDeclaredValue* value;
    KScriptLine line;
    std::size_t field;  ///< as it is written, empty ones counted
    std::size_t offset; ///< in bytes of the field
    bool isOption;      ///< as the value of profile=put, or in it
};

/// All of them, also in sections that nothing loads.
///
/// Lifetime  uses point to `values`
std::vector<KValueUse>
FindValueUses(const KScript& script, const std::vector<KDeclaredValue>& values);

/// Why a value must not be used there: a secret would be shown, or it is not known yet. Empty where it may.
KText WhyNotUse(const KValueUse& use);

} // namespace KSETUP
