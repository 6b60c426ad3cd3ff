// SPDX-License-Identifier: MIT
#pragma once

#include <setup/state/StateDirectory.h>
#include <setup/text/KText.h>

#include <cstdint>
#include <string>
#include <vector>

namespace KSETUP {

/// A product of which the machine remembers something: BASE/NAME is there.
struct KKnownProduct {
    std::string service;      ///< NAME
    std::string name;         ///< as people read it; the service's where no kit is kept
    std::string kit;          ///< the directory of the kept kit; empty without one
    std::int64_t lastRun = 0; ///< when a run ended last, or one that was interrupted began, in
                              ///< seconds since 1970
    KText trouble;            ///< why the kept kit or the name is not known; empty where they are
};

/// All of them, sorted by their services' names. One that cannot be read does not hide the others.
///
/// Throws   KSetupFailure with ExitCode::notRoot for a user who may not look
std::vector<KKnownProduct> FindKnownProducts(const std::string& base = stateBaseDirectory);

/// The directory of the kit that is kept of a product, which is called `name` as its service or, if
/// only one is, as the product.
///
/// Throws   KSetupFailure with ExitCode::notInstalled for one that is not known, naming those that
///          are, ExitCode::noKit for one without a kit, and as above
std::string FindKeptKit(const std::string& name, const std::string& base = stateBaseDirectory);

} // namespace KSETUP
