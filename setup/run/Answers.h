// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KSetupKit.h>
#include <setup/output/KRunReport.h>
#include <setup/output/KSetupArguments.h>

namespace KSETUP {

/// `ins-setup status`: whether the product is installed, and which version.
void FillStatus(const KSetupKit& kit, const KSetupArguments& arguments, KRunReport& report);

} // namespace KSETUP
