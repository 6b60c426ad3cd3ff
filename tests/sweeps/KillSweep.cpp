// SPDX-License-Identifier: MIT
//
// A run that is killed before any call that changes a file, or with half of its bytes written. Then
// what is told has to be true, and both ways out have to lead where they lead without a kill.
#include "CallPoints.h"
#include "KAftermath.h"
#include "Sweeps.h"

#include <csignal>

namespace KSWEEP {

namespace {

/// What was asked of the manager of services before the kill may still be on its way: it answers what
/// comes by the bus in turn.
void WaitForManager() {
    Shell("busctl --timeout=20 call org.freedesktop.systemd1 /org/freedesktop/systemd1 "
          "org.freedesktop.DBus.Peer Ping");
}

class KKillPoint {
  public:
    KKillPoint(const KSubject& itsSubject, const KWay& itsWay, const KBlow& itsBlow)
        : subject(itsSubject),
          way(itsWay),
          blow(itsBlow) {}

    /// Empty when all was well, and when the run ended before the call: threads do not always make
    /// the same calls.
    std::string FindWrong() const {
        if (!Kill()) {
            return {};
        }
        const KAftermath aftermath(subject, way);
        std::string wrong = aftermath.FindLie();
        if (wrong.empty() && !way.asksOnly) {
            wrong = aftermath.GoBackOrOn();
        }
        if (wrong.empty() && !way.otherWords.empty() && Kill()) {
            wrong = aftermath.GoElsewhere();
        }
        return wrong;
    }

  private:
    bool Kill() const {
        subject.GetMachine().PutBack(way.from);
        const KTracedEnd end = Trace(subject.Words(way.words), blow, FileChanges());
        WaitForManager();
        return end.wasStruck && end.signal == SIGKILL;
    }

    const KSubject& subject;
    const KWay& way;
    const KBlow blow;
};

} // namespace

void SweepKills(const KSubject& subject, const KSelection& selection, KReport& report) {
    unsigned number = 0;
    ForEachCall(subject, selection, report, FileChanges(), [&](const KCallPoint& at) {
        number = at.nth == 1 ? 0 : number; // as with errors
        for (const auto kind : {KBlow::Kind::Kill, KBlow::Kind::HalfWrite}) {
            const bool isHalf = kind == KBlow::Kind::HalfWrite;
            const std::string name =
                at.way.name + ":" + std::to_string(at.nth) + (isHalf ? "half" : "");
            if ((isHalf && !WritesBytes(at.call)) || !selection.Has(number++, name) ||
                !at.isChosen) {
                continue;
            }
            const KKillPoint point(subject, at.way, {kind, at.nth, 0, false});
            report.Add(name, (isHalf ? "half of " : "") + at.call.ToText(), point.FindWrong());
        }
    });
}

} // namespace KSWEEP
