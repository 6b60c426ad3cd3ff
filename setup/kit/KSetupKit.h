// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KString.h>

#include <string>

namespace KSETUP {

/// The directory that holds a product to install: product.ini, install.ini, and the files.
class KSetupKit {
  public:
    /// Takes the kit in `directory` (empty: the program's own): loads the product data and makes
    /// the directory the source root of the path map.
    ///
    /// Throws   KSetupFailure when it is no kit
    explicit KSetupKit(const std::string& directory);

    /// The install script.
    const KSUP::KString& GetScript() const noexcept { return script; }
    /// The product's name, such as "DPS".
    static KSUP::KString GetProductName();

  private:
    KSUP::KString script;
};

} // namespace KSETUP
