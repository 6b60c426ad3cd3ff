// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KSetupKit.h>
#include <setup/output/KReporter.h>
#include <setup/output/KRunReport.h>
#include <setup/output/KSetupArguments.h>
#include <setup/preflight/KitSigner.h>

#include <functional>
#include <optional>

#include <sys/processes/KStopSignals.h>

namespace KSETUP {

/// What each step of a run works with: the caller's, for longer than the run.
struct KRunContext {
    const KSetupKit& kit;
    const KSetupArguments& arguments;
    KReporter& reporter;
    KSYS::KStopSignals& signals;
    KRunReport& report; ///< gets what the steps find out, also when one of them throws
    std::optional<KSignedFile> bundle = std::nullopt; ///< that the kit came in

    /// For work that can be stopped: whether a signal came.
    std::function<bool()> ShallStop() const {
        return [&taken = signals] { return taken.Take() != 0; };
    }
};

} // namespace KSETUP
