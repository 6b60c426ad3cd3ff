// SPDX-License-Identifier: MIT
#pragma once

#include "KReport.h"
#include "KSubject.h"

#include <functional>

namespace KSWEEP {

/// A call of an undisturbed run, at which points of a sweep are.
struct KCallPoint {
    const KWay& way;
    unsigned nth; ///< of those that count, from 1
    const KSeenCall& call;
    bool isChosen; ///< by what it is told of; one that is not still has its number
};

/// Runs each way that is chosen without a disturbance, and takes each of its calls in turn. The watch
/// begins anew with each way: it may remember what it has met.
void ForEachCall(
    const KSubject& subject,
    const KSelection& selection,
    KReport& report,
    const KWatch& watch,
    const std::function<void(const KCallPoint&)>& take
);

} // namespace KSWEEP
