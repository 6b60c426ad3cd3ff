// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KString.h>

#include <string>

namespace KSETUP {

/// The directory that holds a product to install: product.ini, install.ini, and the files.
class KSetupKit {
  public:
    /// Takes the kit in `givenDirectory` (empty: the program's own): loads the product data and makes
    /// the directory the source root of the path map.
    ///
    /// Throws   KSetupFailure when it is no kit
    explicit KSetupKit(const std::string& givenDirectory);

    /// The kit's directory, absolute, without a separator at its end.
    const std::string& GetDirectory() const noexcept { return directory; }
    /// The install script.
    const KSUP::KString& GetScript() const noexcept { return script; }
    /// The product's name, such as "DPS".
    static KSUP::KString GetProductName();

  private:
    std::string directory;
    KSUP::KString script;
};

} // namespace KSETUP
