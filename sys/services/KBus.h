// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include <sys/processes/BlockedSignals.h>
#include <sys/services/KServiceError.h>
#include <systemd/sd-bus.h>

namespace KSYS {

/// A connection to the system bus on which systemd is asked. It is one call's own: every wait on it
/// ends at one deadline.
///
/// All but TryOpen throw KServiceError, whose words begin with `subject`: 183 when the time is up,
/// 185 when the connection or systemd is gone (open it again, then), 180 for an unknown unit, EACCES,
/// or 182 with systemd's own words for any other refusal.
///
/// Signals are kept from the thread during a call: one that interrupts it would leave open what
/// became of it.
///
/// Thread   one
///
///     KBus bus("dps.service", KBus::Clock::now() + std::chrono::seconds(25));
///     if (std::string why; bus.TryOpen(why)) { bus.CallManager("Reload", ""); }
class KBus {
  public:
    using Clock = std::chrono::steady_clock;
    struct MessageEnd {
        void operator()(sd_bus_message* message) const noexcept { sd_bus_message_unref(message); }
    };
    using Message = std::unique_ptr<sd_bus_message, MessageEnd>;

    KBus(std::string subjectOfErrors, Clock::time_point end);

    /// Connects, anew where there is a connection.
    ///
    /// Returns  false when there is no bus or it does not answer, and `why` in words
    [[nodiscard]] bool TryOpen(std::string& why);

    /// Calls a method of systemd's manager object. `arguments` are those of sd_bus_message_append(3)
    /// for `types`.
    template <class... Arguments>
    Message CallManager(const char* member, const char* types, Arguments... arguments) {
        SetCallLimit();
        const BlockedSignals blocked;
        Failure error;
        sd_bus_message* reply = nullptr;
        const int result = sd_bus_call_method(
            bus.get(),
            systemd,
            managerPath,
            managerInterface,
            member,
            &error.value,
            &reply,
            types,
            arguments...
        );
        return Taken(member, result, error, reply);
    }

    /// Reads a property of an object of systemd.
    Message
    GetProperty(const char* path, const char* interface, const char* name, const char* type);

    /// From here on `handler` is called, from within Wait, for each such signal of systemd.
    ///
    /// Lifetime `handler` is kept as a pointer while the connection lasts. What it throws ends Wait
    void Match(
        const char* path,
        const char* interface,
        const char* member,
        std::function<void(sd_bus_message*)>& handler
    );

    /// Handles what comes until `isDone`, at most until `until`.
    ///
    /// Returns  whether it is done
    bool Wait(Clock::time_point until, const std::function<bool()>& isDone);

    Clock::time_point GetEnd() const noexcept { return end; }
    void SetEnd(Clock::time_point newEnd) noexcept { end = newEnd; }

    [[noreturn]] void Raise(unsigned code, const std::string& words) const;

    static constexpr const char* managerPath = "/org/freedesktop/systemd1";
    static constexpr const char* managerInterface = "org.freedesktop.systemd1.Manager";

  private:
    static constexpr const char* systemd = "org.freedesktop.systemd1";

    struct BusEnd {
        // Not flushed: what was not sent by now must not keep the caller waiting.
        void operator()(sd_bus* open) const noexcept { sd_bus_close_unref(open); }
    };
    struct Failure {
        sd_bus_error value{};
        Failure() = default;
        Failure(const Failure&) = delete;
        Failure& operator=(const Failure&) = delete;
        ~Failure() { sd_bus_error_free(&value); }
    };

    int Connect();
    int AwaitReady();
    void SetCallLimit();
    Message
    Taken(const char* what, int result, const Failure& failure, sd_bus_message* reply) const;
    unsigned CodeOf(int result, const Failure& failure) const;
    static int OnSignal(sd_bus_message* message, void* handler, sd_bus_error* error) noexcept;

    const std::string subject;
    Clock::time_point end;
    std::unique_ptr<sd_bus, BusEnd> bus;
};

} // namespace KSYS
