// SPDX-License-Identifier: MIT
#include <csignal>
#include <utility>

#include <sys/services/KServiceControl.h>
#include <sys/services/UnitText.h>

namespace KSYS {

namespace {

// Where a running systemd can be told from one that is merely installed (sd_booted(3)).
constexpr const char* runningSign = "/run/systemd/system";

constexpr int noRunStatus = 203; // systemd's own, EXIT_EXEC in systemd.exec(5)

const std::string& CheckedName(const std::string& name) {
    if (const std::string why = WhyNotAServiceName(name); !why.empty()) {
        const std::string info = "\"" + name + "\" cannot be the name of a service: " + why;
        throw KServiceError(ServiceStatus::invalidArgument, info);
    }
    return name;
}

/// Whether systemd counts a service as started as soon as its program runs, so that only time can
/// tell whether it stays.
bool StartsUnseen(const std::string& type) {
    return type == "exec" || type == "simple" || type == "idle";
}

std::string HowItEnded(const KSystemdUnit::Program& program) {
    std::string words;
    if (!program.result.empty() && program.result != "success") {
        words += ", " + program.result;
    }
    const std::string number = std::to_string(program.endStatus);
    if (program.endKind == CLD_EXITED) {
        words += ", exit status " + number;
        words += program.endStatus == noRunStatus ? " (its program could not be run)" : "";
    } else if (program.endKind != 0) {
        words += ", killed by signal " + number;
    }
    return words;
}

/// Whether there is nothing to stop. systemd is not asked to, then: it refuses where it cannot use
/// the unit's file.
bool IsAtRest(KSystemdUnit& unit) {
    return unit.GetState().IsStopped() && !unit.HasJob();
}

std::string InWords(const KSystemdUnit::State& state) {
    return state.active + " (" + state.sub + ")";
}

} // namespace

KServiceControl::KServiceControl(const std::string& serviceName, Notice takerOfNotices)
    : KServiceControl(serviceName, "", Limits(), std::move(takerOfNotices)) {}

KServiceControl::KServiceControl(
    const std::string& serviceName,
    const std::string& rootDirectory,
    const Limits& waits,
    Notice takerOfNotices
)
    : name(CheckedName(serviceName)),
      unit(UnitName(serviceName)),
      root(rootDirectory),
      limits(waits),
      notice(std::move(takerOfNotices)),
      files(rootDirectory, notice) {}

/// Does what is to be done with the unit; once more over a new connection when the first one broke,
/// so `work` has to be such that it can be begun again.
template <class Work>
void KServiceControl::WithUnit(std::chrono::milliseconds limit, Work work) const {
    KSystemdUnit asked(unit, Clock::now() + limit);
    asked.Open();
    try {
        work(asked);
    } catch (const KServiceError& error) {
        if (error.GetStatus() != ServiceStatus::managerLost) {
            throw;
        }
        asked.OpenAgain();
        work(asked);
    }
}

void KServiceControl::Create(
    const std::string& displayName, const std::string& program, const std::string& arguments
) {
    const std::string chosen = ChooseProgram(program);
    if (!IsSystemdRunning()) {
        WriteFile(displayName, chosen, arguments);
        files.Enable(unit);
        return;
    }
    bool isWritten = false; // after the bus is known to be there: else nothing would have changed
    WithUnit(limits.ask, [&](KSystemdUnit& asked) {
        if (!isWritten) {
            WriteFile(displayName, chosen, arguments);
            isWritten = true;
        }
        const UnitFileReport report;
        report.Report(asked.EnableFile());
        asked.Reload();
        if (const std::string problem = asked.GetLoadProblem(); !problem.empty()) {
            asked.Raise(ServiceStatus::failed, problem);
        }
    });
}

/// The program to write a unit file for; empty for a unit file that is there and to be adopted.
std::string KServiceControl::ChooseProgram(const std::string& program) const {
    if (!program.empty()) {
        RefuseForeign();
        return program;
    }
    const std::string found = files.Find(unit);
    const std::string link = "/etc/" + name + '/' + name;
    if (found.empty() && !files.Exists(link)) {
        Raise(
            ServiceStatus::unknown,
            "no program is given, and there is neither a unit file nor the link " + link
        );
    }
    return found.empty() ? link : "";
}

void KServiceControl::RefuseForeign() const {
    if (const std::string found = files.Find(unit); !found.empty() && !files.IsOurs(unit)) {
        Raise(
            ServiceStatus::foreign,
            "there is a unit file that is not ours, and it stays as it is: " + found
        );
    }
}

void KServiceControl::WriteFile(
    const std::string& displayName, const std::string& program, const std::string& arguments
) const {
    if (!program.empty()) {
        RefuseForeign(); // once more: the bus may have been waited for meanwhile
        files.Write(unit, UnitText(displayName, program, arguments));
    }
}

void KServiceControl::Delete() {
    if (!IsSystemdRunning()) {
        DeleteOffline();
        return;
    }
    bool isChecked = false;
    WithUnit(limits.stop + limits.kill + limits.ask, [&](KSystemdUnit& asked) {
        if (!isChecked && !asked.IsKnown()) {
            RaiseUnknown();
        }
        isChecked = true; // a second pass finds what the first one left
        StopForDeletion(asked);
        if (files.Find(unit).empty() || files.IsLink(unit)) {
            // Later versions of systemd refuse to, without a file; of a linked one they take away
            // the link, which is all that provides the unit and not ours.
            files.Disable(unit);
        } else {
            const UnitFileReport report;
            report.Report(asked.DisableFile());
        }
        RemoveFileIfOurs();
        asked.Reload();
        asked.ResetFailed();
    });
}

void KServiceControl::DeleteOffline() const {
    RequireFile();
    files.Disable(unit);
    RemoveFileIfOurs();
}

void KServiceControl::RemoveFileIfOurs() const {
    if (files.IsOurs(unit)) {
        files.Remove(unit);
    } else if (const std::string found = files.Find(unit); !found.empty()) {
        if (notice) {
            notice(unit + ": not ours, so it stays: " + found);
        }
    }
}

/// A process that nobody manages any more must not be left, so one that does not stop is killed.
void KServiceControl::StopForDeletion(KSystemdUnit& asked) const {
    if (IsAtRest(asked)) {
        return;
    }
    asked.SetEnd(Clock::now() + limits.stop);
    try {
        asked.RunJob("StopUnit");
    } catch (const KServiceError& error) {
        if (error.GetStatus() != ServiceStatus::timedOut) {
            throw;
        }
        asked.SetEnd(Clock::now() + limits.kill);
        asked.KillAll(SIGKILL);
        asked.AwaitRest();
    }
    asked.SetEnd(Clock::now() + limits.ask);
    if (const auto state = asked.GetState(); !state.IsStopped()) {
        asked.Raise(ServiceStatus::failed, "it does not stop: it is " + InWords(state));
    }
}

void KServiceControl::Start() {
    RequireSystemd("started");
    bool isRequested = false;
    KFormerRun former;
    WithUnit(limits.start, [&](KSystemdUnit& asked) {
        std::string result;
        if (!isRequested) {
            if (!asked.IsKnown()) {
                RaiseUnknown();
            }
            former.program = asked.GetProgram();
            former.isActive = asked.GetState().IsActive();
            former.isSettled = former.isActive && IsSettled(former.program);
            if (!former.isActive) {
                // Former failures count: after five starts in ten seconds systemd refuses the next,
                // which an installation that is repeated would meet.
                asked.ResetFailed();
                former.program.restarts = 0;
            }
            asked.Keep();
            isRequested = true;
            result = asked.RunJob("StartUnit");
        } else {
            asked.AwaitRest();
        }
        CheckStarted(asked, result, former);
    });
}

/// One that dies again and again is active most of the time, but never for long.
bool KServiceControl::IsSettled(const KSystemdUnit::Program& program) const {
    return Clock::now() - program.activeSince >= limits.settle;
}

void KServiceControl::CheckStarted(
    KSystemdUnit& asked, const std::string& jobResult, const KFormerRun& former
) const {
    const KSystemdUnit::Program program = asked.GetProgram();
    if (jobResult.empty() || jobResult == "done") {
        const bool hasDoneItsWork = program.type == "oneshot" && program.result == "success";
        const bool isSameRun = program.activeSince == former.program.activeSince;
        if (StartsUnseen(program.type) && !(former.isSettled && isSameRun)) {
            AwaitSettled(asked, former.isSettled ? program.restarts : former.program.restarts);
            return;
        }
        if (asked.GetState().IsActive() || hasDoneItsWork) {
            return;
        }
    }
    const std::string job = jobResult.empty() ? "" : "the job ended with \"" + jobResult + "\", ";
    asked.Raise(
        ServiceStatus::failed,
        "it did not start: " + job + "it is " + InWords(asked.GetState()) + HowItEnded(program)
    );
}

/// Watches the program until it has run for a while; `restarts` is how many there were before.
void KServiceControl::AwaitSettled(KSystemdUnit& asked, unsigned restarts) const {
    const auto until = Clock::now() + limits.settle;
    asked.SetEnd(until + limits.ask);
    for (;;) {
        const KSystemdUnit::State state = asked.GetState();
        const KSystemdUnit::Program program = asked.GetProgram();
        // A restart in between shows in their number only.
        if (!state.IsActive() || program.restarts > restarts) {
            asked.Raise(
                ServiceStatus::failed,
                "it started and ended at once: it is " + InWords(state) + HowItEnded(program)
            );
        }
        if (Clock::now() >= until) {
            return;
        }
        asked.AwaitChange(until);
    }
}

void KServiceControl::Stop() {
    Stop(limits.stop);
}

void KServiceControl::Stop(std::chrono::milliseconds limit) {
    RequireSystemd("stopped");
    bool isRequested = false;
    WithUnit(limit, [&](KSystemdUnit& asked) {
        std::string result;
        if (!isRequested) {
            if (!asked.IsKnown()) {
                RaiseUnknown();
            }
            isRequested = true;
            result = IsAtRest(asked) ? "" : asked.RunJob("StopUnit");
        } else {
            asked.AwaitRest();
        }
        // Not the job's result: also a service that had to be killed is stopped.
        if (const auto state = asked.GetState(); !state.IsStopped()) {
            const std::string job = result.empty() ? "" : "the job ended with \"" + result + "\", ";
            asked.Raise(
                ServiceStatus::failed, "it did not stop: " + job + "it is " + InWords(state)
            );
        }
    });
}

void KServiceControl::Reload() {
    RequireSystemd("reloaded");
    WithUnit(limits.ask, [](KSystemdUnit& asked) { asked.Reload(); });
}

unsigned KServiceControl::GetState() {
    RequireSystemd("asked about");
    unsigned state = 1;
    WithUnit(limits.ask, [&](KSystemdUnit& asked) {
        if (!asked.IsKnown()) {
            RaiseUnknown();
        }
        const KSystemdUnit::State found = asked.GetState();
        state = found.IsActive()                 ? 4
                : found.active == "deactivating" ? 3
                : found.active == "activating"   ? 2
                                                 : 1;
    });
    return state;
}

bool KServiceControl::IsSystemdRunning() const {
    return files.Exists(runningSign);
}

void KServiceControl::RequireSystemd(const char* action) const {
    if (!IsSystemdRunning()) {
        Raise(
            ServiceStatus::noManager,
            std::string("the service cannot be ") + action +
                ": systemd does not run here (there is no /run/systemd/system)"
        );
    }
}

void KServiceControl::RequireFile() const {
    if (files.Find(unit).empty()) {
        RaiseUnknown();
    }
}

void KServiceControl::RaiseUnknown() const {
    Raise(ServiceStatus::unknown, "there is no such service");
}

void KServiceControl::Raise(unsigned code, const std::string& words) const {
    const std::string info = unit + ": " + words;
    throw KServiceError(code, info);
}

} // namespace KSYS
