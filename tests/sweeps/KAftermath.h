// SPDX-License-Identifier: MIT
#pragma once

#include "KSubject.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace KSWEEP {

/// What was found out about a way. The same files lead to the same end: what was tried behind a failure is not
/// tried again behind another one that left the machine so, byte for byte.
struct KJudged {
    std::set<std::string> held;     ///< what the machine was left as (KMachineState::Summary)
    std::optional<KTracedEnd> good; ///< of a question that nothing disturbs
};

/// The machine behind a run that did not come to its end: whether what is told of it is so, and
/// whether the ways out lead where they should. Each answers what was wrong, empty for nothing.
class KAftermath {
  public:
    KAftermath(const KSubject& itsSubject, const KWay& itsWay) : subject(itsSubject), way(itsWay) {}

    /// All of what follows, of a run that met a failure and was not killed: that it ended by itself,
    /// and that what it said is so.
    /// `isMute` where it could not say anything; `cause` is what the failure is called in words.
    std::string FindWrong(
        const KTracedEnd& end, const std::string& cause, KJudged& judged, bool isMute = false
    ) const;
    /// Asks. A run that is not remembered has to look as if it had not begun, or as if it were done.
    /// What it was told goes to `told`, if there is one.
    std::string FindLie(std::string* told = nullptr) const;
    /// The same command again, which ends as an undisturbed one would have; only a restoration that
    /// was interrupted has to be ended first.
    std::string GoBackOrOn() const;
    /// What else may be done then.
    std::string GoElsewhere() const;

  private:
    std::string FindWrongEnd(const KTracedEnd& end, bool isMute) const;
    std::string FindWrongAnswer(
        const KTracedEnd& end, const std::string& cause, KJudged& judged, bool isMute
    ) const;
    std::string GoOn(
        const std::vector<std::string>& words,
        int exitCode,
        const std::vector<std::string>& states,
        bool isLoose
    ) const;
    std::string Restore(const std::string& state) const;
    bool IsToldOf(const char* what) const;

    const KSubject& subject;
    const KWay& way;
};

} // namespace KSWEEP
