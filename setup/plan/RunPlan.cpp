// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/plan/RunPlan.h>

namespace KSETUP {

int RunPlan(const KSetupArguments& /*arguments*/) {
    throw KSetupFailure(ExitCode::internal, "not yet");
}

int RunMacros(const KSetupArguments& /*arguments*/) {
    throw KSetupFailure(ExitCode::internal, "not yet");
}

} // namespace KSETUP
