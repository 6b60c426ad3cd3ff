// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <sys/services/KBus.h>
#include <sys/services/UnitFileChanges.h>

namespace KSYS {

/// One unit as systemd sees it, over a connection of its own. Open, then the others in any order.
///
/// All throw what KBus throws; after a 185 the unit can be opened again.
///
/// Thread   one
class KSystemdUnit {
  public:
    using Clock = KBus::Clock;

    /// systemd's own words, such as "active" and "running".
    struct State {
        std::string active;
        std::string sub;
        bool IsActive() const { return active == "active" || active == "reloading"; }
        bool IsStopped() const { return active == "inactive" || active == "failed"; }
    };

    /// What is known of a service's program.
    struct Program {
        std::string type;   ///< as in the unit file
        std::string result; ///< "success", or how it failed
        int endKind = 0;    ///< 1 exited, 2 and 3 killed (CLD_EXITED, …), 0 not ended
        int endStatus = 0;  ///< exit status or signal
        unsigned restarts = 0;
        Clock::time_point activeSince; ///< of its present run, or of its last one
    };

    KSystemdUnit(const std::string& unitName, Clock::time_point endOfWaits);

    /// Connects to the bus and has systemd load the unit's file.
    void Open();
    /// The same after the connection was lost: the bus may be about to come back, so it is tried for
    /// a while.
    void OpenAgain();

    /// Has systemd remember how the unit ended, which it would forget with a unit that is at rest and
    /// that nothing needs. It holds for this connection.
    void Keep();
    /// Puts a job into systemd's queue ("StartUnit", "StopUnit") and waits for its end.
    ///
    /// Returns  systemd's word for the result, such as "done" or "failed"
    /// Throws   KServiceError 183 when the time is up; the job goes on
    std::string RunJob(const char* method);
    /// Waits until the unit has no job and is neither coming up nor going down.
    ///
    /// Throws   as above
    void AwaitRest();
    /// Waits until the unit changes, at most until `until`.
    void AwaitChange(Clock::time_point until);

    /// Returns  what systemd did for it; nothing for what was so already
    std::vector<UnitFileChange> EnableFile();
    /// Returns  as above
    std::vector<UnitFileChange> DisableFile();
    /// Has systemd read all unit files again.
    void Reload();
    /// Forgets failures and counted starts. What is forgotten already is fine.
    void ResetFailed();
    void KillAll(int signalNumber);

    State GetState();
    Program GetProgram();
    /// Whether there is a file for the unit, or it is still there without one.
    bool IsKnown();
    /// Why systemd cannot use the unit's file; empty when it can.
    std::string GetLoadProblem();
    bool HasJob();

    void SetEnd(Clock::time_point newEnd) noexcept { bus.SetEnd(newEnd); }
    [[noreturn]] void Raise(unsigned code, const std::string& words) const {
        bus.Raise(code, words);
    }

  private:
    bool TryOpen(std::string& why);
    void Watch();
    [[noreturn]] void RaiseTimeUp();
    std::string GetText(const char* interface, const char* property);
    int GetNumber(const char* property, char type);
    Clock::time_point GetTime(const char* interface, const char* property);

    const std::string unit;
    KBus bus;
    std::string path; // of the unit's object on the bus
    std::map<std::string, std::string> endedJobs;
    bool hasChanged = false;
    bool isWatching = false;
    // Kept by the connection as pointers.
    std::function<void(sd_bus_message*)> onJobRemoved;
    std::function<void(sd_bus_message*)> onChange;
};

} // namespace KSYS
