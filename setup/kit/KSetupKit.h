// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/DeclaredValues.h>
#include <sup++/KString.h>

#include <string>
#include <vector>

namespace KSETUP {

/// The directory that holds a product to install: product.ini, install.ini, and the files.
class KSetupKit {
  public:
    /// What is to come of mistakes in product.ini.
    enum class Mistakes {
        Refused,
        Told, ///< by the caller, who finds them again; the product data may be another product's
    };

    /// Takes the kit in `givenDirectory` (empty: the program's own): loads the product data and makes
    /// the directory the source root of the path map.
    ///
    /// Throws   KSetupFailure when it is no kit
    explicit KSetupKit(const std::string& givenDirectory, Mistakes mistakes = Mistakes::Refused);

    /// Whether the program lies in a kit, as that of a bundle does.
    ///
    /// Throws   KSetupFailure where that cannot be known
    static bool IsBesideProgram();

    /// Where the kit is that a command on kits means: `given`, or the program's own directory, or
    /// else the current one.
    ///
    /// Throws   KSetupFailure where none of them holds a kit
    static std::string ChooseDirectory(const std::string& given);

    /// The kit's directory, absolute, without a separator at its end.
    const std::string& GetDirectory() const noexcept { return directory; }
    /// The install script.
    const KSUP::KString& GetScript() const noexcept { return script; }
    /// The values that an installation of it needs.
    const std::vector<KDeclaredValue>& GetValues() const noexcept { return values; }
    /// The product's name, such as "DPS".
    static KSUP::KString GetProductName();

  private:
    std::string directory;
    KSUP::KString script;
    std::vector<KDeclaredValue> values;
};

} // namespace KSETUP
