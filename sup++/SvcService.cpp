// SPDX-License-Identifier: MIT
#include <sup++/KError.h>
#include <sup++/KErrorSource.h>
#include <sup++/SvcService.h>
#include <sup++/ThreadSafety.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include <sys/KAnnotatedMutex.h>
#include <sys/KPerThread.h>
#include <sys/NeverDestroyed.h>
#include <sys/services/KServiceControl.h>
#include <sys/services/KServiceError.h>

namespace {

using KSYS::KServiceControl;

constexpr KSUP::KErrorSource source{"sup++/SvcService"};

// One number each, here and in the layer below, which knows nothing of this one.
static_assert(KSUP::ErrorCode::invalidArgument == KSYS::ServiceStatus::invalidArgument);
static_assert(KSUP::ErrorCode::serviceUnknown == KSYS::ServiceStatus::unknown);
static_assert(KSUP::ErrorCode::serviceForeign == KSYS::ServiceStatus::foreign);
static_assert(KSUP::ErrorCode::serviceFailed == KSYS::ServiceStatus::failed);
static_assert(KSUP::ErrorCode::serviceTimedOut == KSYS::ServiceStatus::timedOut);
static_assert(KSUP::ErrorCode::noServiceManager == KSYS::ServiceStatus::noManager);
static_assert(KSUP::ErrorCode::serviceManagerLost == KSYS::ServiceStatus::managerLost);

constexpr unsigned stopped = 1;
constexpr unsigned running = 4;

/// Of the calling thread; throws std::bad_alloc.
std::string& LastErrorText() {
    static KSYS::NeverDestroyed<KSYS::KPerThread<std::string>> text;
    return text.Get().Get();
}

std::atomic<bool> leavesForNextBoot{false};

/// What is left for the next boot, in the order in which it was first asked for.
class LeftServices {
  public:
    struct Left {
        std::string name;
        unsigned state;
    };

    void Put(const std::string& name, unsigned state) {
        const KSYS::KScopedLock hold(guard);
        const auto found = Find(name);
        if (found != all.end()) {
            found->state = state;
        } else {
            all.push_back({name, state});
        }
    }
    void Remove(const std::string& name) {
        const KSYS::KScopedLock hold(guard);
        const auto found = Find(name);
        if (found != all.end()) {
            all.erase(found);
        }
    }
    bool Get(unsigned number, Left& left) {
        const KSYS::KScopedLock hold(guard);
        if (number >= all.size()) {
            return false;
        }
        left = all[number];
        return true;
    }

  private:
    std::vector<Left>::iterator Find(const std::string& name) SUP_REQUIRES(guard) {
        return std::find_if(all.begin(), all.end(), [&](const Left& each) {
            return each.name == name;
        });
    }

    KSYS::KAnnotatedMutex<std::mutex> guard;
    std::vector<Left> all SUP_GUARDED_BY(guard);
};

LeftServices& TheLeftServices() {
    static KSYS::NeverDestroyed<LeftServices> services;
    return services.Get();
}

unsigned Failed(unsigned status, const char* words) noexcept {
    try {
        std::string& text = LastErrorText();
        text.clear(); // a former one would be wrong
        text = words;
    } catch (const std::bad_alloc&) {
        // then there is none
    }
    return status;
}

void RequireArguments(bool fit) {
    if (!fit) {
        source.Raise(
            KSUP::TraceLevel::support,
            KSUP::ErrorCode::invalidArgument,
            "a null text or a reserved argument that is not 0"
        );
    }
}

/// A class of our own, for the type information of a plain function would be exported.
struct Trace {
    void operator()(const std::string& notice) const {
        Msg(KSUP::TraceLevel::support, "%s", notice.c_str());
    }
};

/// These calls answer with a status only; the words are kept beside it.
template <class Call>
unsigned WithStatus(Call call) noexcept {
    try {
        try {
            call();
            return 0;
        } catch (const KSYS::KServiceError& error) {
            source.Raise(KSUP::TraceLevel::support, error.GetStatus(), error.what());
        }
    } catch (const KSUP::KError& error) {
        return Failed(error.GetCode(), error.GetInfo().GetString().c_str());
    } catch (const std::bad_alloc&) {
        return Failed(ENOMEM, "there is no memory left");
    } catch (const std::exception& error) {
        return Failed(EIO, error.what());
    }
}

/// Whether to leave a start or stop for the next boot; if so, it is noted.
bool IsLeft(const KServiceControl& service, const char* name, unsigned state) {
    if (!leavesForNextBoot || service.IsSystemdRunning()) {
        return false;
    }
    service.RequireFile();
    TheLeftServices().Put(name, state);
    return true;
}

template <class Stop>
unsigned StopWith(unsigned flags, const char* name, Stop stop) noexcept {
    return WithStatus([&] {
        RequireArguments(flags == 0 && name != nullptr);
        KServiceControl service(name, Trace());
        if (!IsLeft(service, name, stopped)) {
            stop(service);
        }
    });
}

} // namespace

unsigned SvcCreateService(
    unsigned flags,
    const char* name,
    const char* displayName,
    const char* program,
    const char* arguments
) noexcept {
    return WithStatus([&] {
        RequireArguments(
            flags == 0 && name != nullptr && displayName != nullptr && program != nullptr &&
            arguments != nullptr
        );
        KServiceControl(name, Trace()).Create(displayName, program, arguments);
    });
}

unsigned SvcDeleteService(unsigned flags, const char* name) noexcept {
    return WithStatus([&] {
        RequireArguments(flags == 0 && name != nullptr);
        KServiceControl(name, Trace()).Delete();
        TheLeftServices().Remove(name);
    });
}

unsigned SvcStartService(unsigned flags, const char* name) noexcept {
    return WithStatus([&] {
        RequireArguments(flags == 0 && name != nullptr);
        KServiceControl service(name, Trace());
        if (!IsLeft(service, name, running)) {
            service.Start();
        }
    });
}

unsigned SvcStopService(unsigned flags, const char* name) noexcept {
    return StopWith(flags, name, [](KServiceControl& service) { service.Stop(); });
}

unsigned SvcStopServiceEx(unsigned flags, const char* name, unsigned timeoutMs) noexcept {
    return StopWith(flags, name, [timeoutMs](KServiceControl& service) {
        service.Stop(std::chrono::milliseconds(timeoutMs));
    });
}

unsigned SvcGetServiceStatus(unsigned flags, const char* name, unsigned* state) noexcept {
    return WithStatus([&] {
        RequireArguments(flags == 0 && name != nullptr && state != nullptr);
        *state = KServiceControl(name, Trace()).GetState();
    });
}

const char* SvcGetServiceErrorText() noexcept {
    try {
        return LastErrorText().c_str();
    } catch (const std::bad_alloc&) {
        return "";
    }
}

unsigned SvcSetOfflineServices(unsigned flags, unsigned leaveForNextBoot) noexcept {
    return WithStatus([&] {
        RequireArguments(flags == 0 && leaveForNextBoot <= 1);
        leavesForNextBoot = leaveForNextBoot == 1;
    });
}

unsigned SvcEnumerateLeftServices(
    unsigned flags, unsigned* cursor, unsigned size, char* buffer, unsigned* state
) noexcept {
    // The end of the enumeration is no failure to be told of, so nothing is raised here.
    if (flags != 0 || cursor == nullptr || buffer == nullptr || state == nullptr) {
        return KSUP::ErrorCode::invalidArgument;
    }
    try {
        LeftServices::Left left;
        if (!TheLeftServices().Get(*cursor, left)) {
            return KSUP::ErrorCode::notFound;
        }
        if (left.name.size() >= size) {
            return KSUP::ErrorCode::invalidArgument;
        }
        std::memcpy(buffer, left.name.c_str(), left.name.size() + 1);
        *state = left.state;
        ++*cursor;
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}
