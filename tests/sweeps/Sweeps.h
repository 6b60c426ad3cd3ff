// SPDX-License-Identifier: MIT
#pragma once

#include "KReport.h"
#include "KSubject.h"

namespace KSWEEP {

/// Each kills, fails, cuts or disturbs the ways of the subject wherever it can, and reports.

void SweepKills(const KSubject& subject, const KSelection& selection, KReport& report);
/// Hides the service manager from this process and its children, and their mounts from it: it would
/// write into the machine's own /etc, and costs the most of the time. To be called before the subject
/// is made.
///
/// Throws   std::exception
void HideManager();
/// Needs two disks of the throwaway machine, and a hidden service manager.
void SweepCuts(const KSubject& subject, const KSelection& selection, KReport& report);
void SweepErrors(const KSubject& subject, const KSelection& selection, KReport& report);
void SweepAllocations(const KSubject& subject, const KSelection& selection, KReport& report);
void SweepLoads(const KSubject& subject, const KSelection& selection, KReport& report);
void SweepRaces(const KSubject& subject, const KSelection& selection, KReport& report);

} // namespace KSWEEP
