// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include <sys/services/KBus.h>

namespace KSYS {

namespace {

// The well-known place; no variable of the environment leads root elsewhere.
constexpr const char* address = "unix:path=/run/dbus/system_bus_socket";

// A caller's time may be up, or none may have been given, when the one call is due that tells how
// things stand: it gets this much.
constexpr auto leastCallTime = std::chrono::seconds(1);

std::uint64_t MicrosecondsUntil(KBus::Clock::time_point until) noexcept {
    const auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(until - KBus::Clock::now());
    return left.count() > 0 ? static_cast<std::uint64_t>(left.count()) : 0;
}

std::string SystemText(int result) {
    return std::generic_category().message(-result);
}

/// Whether an answer says that systemd, or the bus between it and us, went away.
bool MeansLost(std::string_view name) noexcept {
    constexpr std::string_view common = "org.freedesktop.DBus.Error.";
    if (!name.starts_with(common)) {
        return false;
    }
    name.remove_prefix(common.size());
    return name == "NoReply" || name == "Disconnected" || name == "ServiceUnknown" ||
           name == "NameHasNoOwner" || name == "NoServer" || name.starts_with("Spawn.");
}

} // namespace

KBus::KBus(std::string subjectOfErrors, Clock::time_point endOfWaits)
    : subject(std::move(subjectOfErrors)),
      end(endOfWaits) {}

bool KBus::TryOpen(std::string& why) {
    const int result = Connect();
    if (result < 0) {
        bus.reset();
        why = "the system bus cannot be reached: " + SystemText(result);
    }
    return result >= 0;
}

int KBus::Connect() {
    sd_bus* made = nullptr;
    int result = sd_bus_new(&made);
    bus.reset(made);
    if (result >= 0) {
        result = sd_bus_set_address(made, address);
    }
    if (result >= 0) {
        result = sd_bus_set_bus_client(made, 1);
    }
    if (result >= 0) {
        result = sd_bus_start(made);
    }
    return result < 0 ? result : AwaitReady();
}

/// The first call would wait for this too, but for longer than a caller may have.
int KBus::AwaitReady() {
    const auto until = std::max(end, Clock::now() + leastCallTime);
    for (;;) {
        int result = sd_bus_process(bus.get(), nullptr);
        if (result < 0 && result != -EINTR) {
            return result;
        }
        if (sd_bus_is_ready(bus.get()) > 0) {
            return 0;
        }
        if (result > 0) {
            continue;
        }
        const std::uint64_t left = MicrosecondsUntil(until);
        if (left == 0) {
            return -ETIMEDOUT;
        }
        result = sd_bus_wait(bus.get(), left);
        if (result < 0 && result != -EINTR) {
            return result;
        }
    }
}

void KBus::SetCallLimit() {
    const auto until = std::max(end, Clock::now() + leastCallTime);
    // Fails for a connection from another process only.
    static_cast<void>(sd_bus_set_method_call_timeout(bus.get(), MicrosecondsUntil(until)));
}

KBus::Message
KBus::GetProperty(const char* path, const char* interface, const char* name, const char* type) {
    SetCallLimit();
    const BlockedSignals blocked;
    Failure error;
    sd_bus_message* reply = nullptr;
    const int result =
        sd_bus_get_property(bus.get(), systemd, path, interface, name, &error.value, &reply, type);
    return Taken(name, result, error, reply);
}

void KBus::Match(
    const char* path,
    const char* interface,
    const char* member,
    std::function<void(sd_bus_message*)>& handler
) {
    SetCallLimit();
    const BlockedSignals blocked;
    const int result = sd_bus_match_signal(
        bus.get(), nullptr, systemd, path, interface, member, &KBus::OnSignal, &handler
    );
    Taken(member, result, Failure(), nullptr);
}

bool KBus::Wait(Clock::time_point until, const std::function<bool()>& isDone) {
    for (;;) {
        int result = sd_bus_process(bus.get(), nullptr);
        if (result >= 0 && isDone()) {
            return true;
        }
        if (result == 0) {
            const std::uint64_t left = MicrosecondsUntil(std::min(until, end));
            if (left == 0) {
                return false;
            }
            result = sd_bus_wait(bus.get(), left);
        }
        if (result < 0 && result != -EINTR) {
            Raise(ServiceStatus::managerLost, "the system bus was lost: " + SystemText(result));
        }
    }
}

int KBus::OnSignal(sd_bus_message* message, void* handler, sd_bus_error*) noexcept {
    try {
        (*static_cast<std::function<void(sd_bus_message*)>*>(handler))(message);
        return 0;
    } catch (...) { // nothing may pass through the library; Wait ends with this
        return -ENOMEM;
    }
}

KBus::Message
KBus::Taken(const char* what, int result, const Failure& failure, sd_bus_message* reply) const {
    Message message(reply);
    if (result >= 0) {
        return message;
    }
    const char* words = failure.value.message;
    Raise(
        CodeOf(result, failure),
        std::string(what) + ": " + (words != nullptr ? words : SystemText(result))
    );
}

/// An unknown unit may be one that the subject depends on; only the words tell.
unsigned KBus::CodeOf(int result, const Failure& failure) const {
    const std::string_view name = failure.value.name != nullptr ? failure.value.name : "";
    const std::string_view words = failure.value.message != nullptr ? failure.value.message : "";
    if (sd_bus_is_open(bus.get()) <= 0 || MeansLost(name)) {
        return ServiceStatus::managerLost;
    }
    if (result == -ETIMEDOUT) {
        return ServiceStatus::timedOut;
    }
    if (name == "org.freedesktop.systemd1.NoSuchUnit" &&
        words.find(subject) != std::string_view::npos) {
        return ServiceStatus::unknown;
    }
    if (result == -EACCES || result == -EPERM ||
        name == "org.freedesktop.DBus.Error.InteractiveAuthorizationRequired") {
        return EACCES;
    }
    return result == -ENOMEM ? ENOMEM : ServiceStatus::failed;
}

void KBus::Raise(unsigned code, const std::string& words) const {
    const std::string info = subject + ": " + words;
    throw KServiceError(code, info);
}

} // namespace KSYS
