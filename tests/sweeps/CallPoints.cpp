// SPDX-License-Identifier: MIT
#include "CallPoints.h"

namespace KSWEEP {

void ForEachCall(
    const KSubject& subject,
    const KSelection& selection,
    KReport& report,
    const KWatch& watch,
    const std::function<void(const KCallPoint&)>& take
) {
    for (const KWay& way : subject.GetWays()) {
        if (!selection.HasWay(way.name)) {
            continue;
        }
        report.Begin(way.name);
        subject.GetMachine().PutBack(way.from);
        const KWatch anew = watch;
        const KTracedEnd whole = Trace(subject.Words(way.words), {}, anew);
        std::string named;
        unsigned nth = 0;
        for (const KSeenCall& call : whole.calls) {
            named = call.path.empty() ? named : call.ToText();
            take({way, ++nth, call, selection.HasCall(call.ToText(), named)});
        }
        report.End();
    }
}

} // namespace KSWEEP
