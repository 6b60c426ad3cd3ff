// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KRunReport.h>
#include <setup/text/KText.h>

#include <string>

/// \file
/// What a run did, in a few lines.
namespace KSETUP {

/// As "DPS 2.2 (build 41)".
KText VersionText(const KRunReport& report);
/// As "10 rules done: 8 files (1.5 GiB) copied in 2.3 s."
KText WorkLine(const KRunReport& report);
/// As "1 edited file kept, 2 obsolete ones deleted."; empty where there is nothing to say.
KText ChangesLine(const KRunReport& report);
/// Where a run ended before its end, as "in rule 4 of 10".
KText PlaceOfEnd(const KRunReport& report);

} // namespace KSETUP
