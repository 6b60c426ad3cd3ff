// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/check/RunCheck.h>

namespace KSETUP {

int RunCheck(const KSetupArguments& /*arguments*/) {
    throw KSetupFailure(ExitCode::internal, "not yet");
}

} // namespace KSETUP
