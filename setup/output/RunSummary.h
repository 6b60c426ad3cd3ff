// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KRunReport.h>

#include <string>

/// \file
/// What a run did, in a few lines.
namespace KSETUP {

/// As "DPS 2.2 (build 41)".
std::string VersionText(const KRunReport& report);
/// As "10 rules done: 8 files (1.5 GiB) copied in 2.3 s."
std::string WorkLine(const KRunReport& report);
/// As "1 edited file kept, 2 obsolete ones deleted."; empty where there is nothing to say.
std::string ChangesLine(const KRunReport& report);
/// Where a run ended before its end, as "in rule 4 of 10".
std::string PlaceOfEnd(const KRunReport& report);

} // namespace KSETUP
