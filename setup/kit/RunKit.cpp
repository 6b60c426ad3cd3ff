// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/RunKit.h>

namespace KSETUP {

int RunKit(const KSetupArguments& /*arguments*/) {
    throw KSetupFailure(ExitCode::internal, "not yet");
}

} // namespace KSETUP
