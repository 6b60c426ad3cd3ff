// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdint>
#include <thread>

#include <sys/services/KSystemdUnit.h>

namespace KSYS {

namespace {

constexpr const char* unitInterface = "org.freedesktop.systemd1.Unit";
constexpr const char* serviceInterface = "org.freedesktop.systemd1.Service";

// A bus that is started again is back within a second or two; a machine may be slow. A caller whose
// time is up gets the least of it.
constexpr auto reopenPatience = std::chrono::seconds(10);
constexpr auto leastPatience = std::chrono::seconds(1);
constexpr auto reopenInterval = std::chrono::milliseconds(200);

// Signals tell of changes; this is for those that a new connection came too late for.
constexpr auto lookInterval = std::chrono::milliseconds(200);

/// Texts of a message are its own and end with it.
std::string TextIn(sd_bus_message* message, char type) {
    const char* text = nullptr;
    return sd_bus_message_read_basic(message, type, &text) > 0 && text != nullptr ? text : "";
}

std::vector<UnitFileChange> ChangesIn(sd_bus_message* message) {
    std::vector<UnitFileChange> changes;
    const char* type = nullptr;
    const char* path = nullptr;
    const char* source = nullptr;
    if (sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "(sss)") > 0) {
        while (sd_bus_message_read(message, "(sss)", &type, &path, &source) > 0) {
            changes.push_back({type, path});
        }
    }
    return changes;
}

} // namespace

KSystemdUnit::KSystemdUnit(const std::string& unitName, Clock::time_point endOfWaits)
    : unit(unitName),
      bus(unitName, endOfWaits) {
    onJobRemoved = [this](sd_bus_message* message) {
        unsigned id = 0;
        const char* job = nullptr;
        const char* name = nullptr; // the unit's own one, where it was asked for by an alias
        const char* result = nullptr;
        if (sd_bus_message_read(message, "uoss", &id, &job, &name, &result) > 0) {
            endedJobs[job] = result;
        }
    };
    onChange = [this](sd_bus_message*) { hasChanged = true; };
}

void KSystemdUnit::Open() {
    if (std::string why; !TryOpen(why)) {
        Raise(ServiceStatus::managerLost, why);
    }
}

void KSystemdUnit::OpenAgain() {
    const auto now = Clock::now();
    const auto until = std::min(now + reopenPatience, std::max(bus.GetEnd(), now + leastPatience));
    std::string why;
    while (!TryOpen(why)) {
        if (Clock::now() > until) {
            Raise(ServiceStatus::managerLost, why + "; what became of the service is not known");
        }
        std::this_thread::sleep_for(reopenInterval);
    }
}

bool KSystemdUnit::TryOpen(std::string& why) {
    isWatching = false;
    if (!bus.TryOpen(why)) {
        return false;
    }
    try {
        path =
            TextIn(bus.CallManager("LoadUnit", "s", unit.c_str()).get(), SD_BUS_TYPE_OBJECT_PATH);
        return true;
    } catch (const KServiceError& error) {
        // The bus is there, but systemd is not on it (yet).
        if (error.GetStatus() != ServiceStatus::managerLost) {
            throw;
        }
        why = error.what();
        return false;
    }
}

void KSystemdUnit::Keep() {
    bus.CallManager("RefUnit", "s", unit.c_str());
}

std::string KSystemdUnit::RunJob(const char* method) {
    endedJobs.clear();
    Watch(); // before the call: the job may have ended by the time that its name is known
    const KBus::Message reply = bus.CallManager(method, "ss", unit.c_str(), "replace");
    const std::string job = TextIn(reply.get(), SD_BUS_TYPE_OBJECT_PATH);
    const auto hasEnded = [&] { return endedJobs.contains(job); };
    if (!bus.Wait(Clock::time_point::max(), hasEnded)) {
        RaiseTimeUp();
    }
    return endedJobs[job];
}

void KSystemdUnit::Watch() {
    if (isWatching) {
        return;
    }
    bus.CallManager("Subscribe", "");
    bus.Match(KBus::managerPath, KBus::managerInterface, "JobRemoved", onJobRemoved);
    bus.Match(path.c_str(), "org.freedesktop.DBus.Properties", "PropertiesChanged", onChange);
    isWatching = true;
}

void KSystemdUnit::RaiseTimeUp() {
    const State state = GetState();
    Raise(
        ServiceStatus::timedOut,
        "the time is up; the service is " + state.active + " (" + state.sub + ")"
    );
}

void KSystemdUnit::AwaitRest() {
    for (;;) {
        const State state = GetState();
        const bool isMoving = (state.active == "activating" && state.sub != "auto-restart") ||
                              state.active == "deactivating";
        if (!isMoving && !HasJob()) {
            return;
        }
        if (Clock::now() >= bus.GetEnd()) {
            RaiseTimeUp();
        }
        AwaitChange(Clock::now() + lookInterval);
    }
}

void KSystemdUnit::AwaitChange(Clock::time_point until) {
    Watch();
    hasChanged = false;
    bus.Wait(until, [this] { return hasChanged; });
}

std::vector<UnitFileChange> KSystemdUnit::EnableFile() {
    constexpr int fileCount = 1;
    constexpr int isRuntime = 0;
    constexpr int isForced = 0;
    const KBus::Message reply =
        bus.CallManager("EnableUnitFiles", "asbb", fileCount, unit.c_str(), isRuntime, isForced);
    sd_bus_message_skip(reply.get(), "b"); // whether the file has a section [Install]
    return ChangesIn(reply.get());
}

std::vector<UnitFileChange> KSystemdUnit::DisableFile() {
    constexpr int fileCount = 1;
    constexpr int isRuntime = 0;
    const KBus::Message reply =
        bus.CallManager("DisableUnitFiles", "asb", fileCount, unit.c_str(), isRuntime);
    return ChangesIn(reply.get());
}

void KSystemdUnit::Reload() {
    bus.CallManager("Reload", "");
}

void KSystemdUnit::ResetFailed() {
    try {
        bus.CallManager("ResetFailedUnit", "s", unit.c_str());
    } catch (const KServiceError& error) {
        // A unit without a failure or a file may be unloaded at any time: nothing is left to forget.
        if (error.GetStatus() != ServiceStatus::unknown) {
            throw;
        }
    }
}

void KSystemdUnit::KillAll(int signalNumber) {
    bus.CallManager("KillUnit", "ssi", unit.c_str(), "all", signalNumber);
}

KSystemdUnit::State KSystemdUnit::GetState() {
    return {GetText(unitInterface, "ActiveState"), GetText(unitInterface, "SubState")};
}

KSystemdUnit::Program KSystemdUnit::GetProgram() {
    Program program;
    program.type = GetText(serviceInterface, "Type");
    program.result = GetText(serviceInterface, "Result");
    program.endKind = GetNumber("ExecMainCode", SD_BUS_TYPE_INT32);
    program.endStatus = GetNumber("ExecMainStatus", SD_BUS_TYPE_INT32);
    program.restarts = static_cast<unsigned>(GetNumber("NRestarts", SD_BUS_TYPE_UINT32));
    program.activeSince = GetTime(unitInterface, "ActiveEnterTimestampMonotonic");
    return program;
}

bool KSystemdUnit::IsKnown() {
    return GetText(unitInterface, "LoadState") != "not-found" || !GetState().IsStopped();
}

std::string KSystemdUnit::GetLoadProblem() {
    const std::string state = GetText(unitInterface, "LoadState");
    if (state == "loaded") {
        return "";
    }
    const KBus::Message reply = bus.GetProperty(path.c_str(), unitInterface, "LoadError", "(ss)");
    const char* name = nullptr;
    const char* words = nullptr;
    const int read = sd_bus_message_read(reply.get(), "(ss)", &name, &words);
    return "systemd cannot use the unit file (" + state + ")" +
           (read > 0 && *words != '\0' ? std::string(": ") + words : "");
}

bool KSystemdUnit::HasJob() {
    const KBus::Message reply = bus.GetProperty(path.c_str(), unitInterface, "Job", "(uo)");
    unsigned id = 0;
    const char* job = nullptr;
    return sd_bus_message_read(reply.get(), "(uo)", &id, &job) > 0 && id != 0;
}

std::string KSystemdUnit::GetText(const char* interface, const char* property) {
    const KBus::Message reply = bus.GetProperty(path.c_str(), interface, property, "s");
    return TextIn(reply.get(), SD_BUS_TYPE_STRING);
}

int KSystemdUnit::GetNumber(const char* property, char type) {
    const char signature[] = {type, '\0'};
    const KBus::Message reply =
        bus.GetProperty(path.c_str(), serviceInterface, property, signature);
    int number = 0; // the types read here have its size
    sd_bus_message_read_basic(reply.get(), type, &number);
    return number;
}

/// Of a property in microseconds of the monotonic clock, which is Clock's own.
KSystemdUnit::Clock::time_point KSystemdUnit::GetTime(const char* interface, const char* property) {
    const KBus::Message reply = bus.GetProperty(path.c_str(), interface, property, "t");
    std::uint64_t microseconds = 0;
    sd_bus_message_read_basic(reply.get(), SD_BUS_TYPE_UINT64, &microseconds);
    return Clock::time_point(std::chrono::microseconds(microseconds));
}

} // namespace KSYS
