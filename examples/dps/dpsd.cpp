// SPDX-License-Identifier: MIT
//
// dpsd, the service of the example product: writes one line about the machine a period, and tells the
// last one to whoever connects to its port, until SIGTERM or SIGINT. Runs in the foreground.

#include "dps/core/KSampler.h"
#include "dps/core/KSettings.h"
#include "dps/core/Version.h"
#include "dps/net/KStatusPort.h"

#include <sup++/KError.h>
#include <sup++/KUtil.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

using KSUP::KString;
using KSUP::KUtil;
using Clock = std::chrono::steady_clock;

namespace {

constexpr unsigned defaultPeriodMs = 1000;
constexpr unsigned shortestPeriodMs = 10;
constexpr unsigned logsRequests = 2; // the log level from which on it does

/// The program lies in PRODUCT/lin/x86_64/, however it was called: entry 2 of the path map is the
/// directory of the program itself.
KString FindConfiguration() {
    KString product = KUtil::GetPathMap(2);
    for (int level = 0; level < 2; ++level) {
        product = KUtil::RemoveFileFromPath(KUtil::RemovePathSep(product, "/"), "/");
    }
    return KUtil::AppendPathSep(product, "/") + "config/dps.ini";
}

KString FindResources(const DPS::KSettings& settings) {
    const KString resources = settings.GetText("Product", "Resources", "");
    if (resources.IsEmpty()) {
        throw std::runtime_error("the configuration has no Resources in section [Product]");
    }
    return resources;
}

/// Readable when the service is to end. The signals are blocked, so that none is missed between
/// two waits.
class StopRequest {
  public:
    StopRequest() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        sigaddset(&signals, SIGINT);
        sigprocmask(SIG_BLOCK, &signals, nullptr);
        descriptor = ::signalfd(-1, &signals, SFD_CLOEXEC);
        if (descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), "signalfd");
        }
    }
    ~StopRequest() { ::close(descriptor); }
    StopRequest(const StopRequest&) = delete;
    StopRequest& operator=(const StopRequest&) = delete;

    int GetDescriptor() const noexcept { return descriptor; }

  private:
    int descriptor = -1;
};

class Service {
  public:
    explicit Service(const DPS::KSettings& settings)
        : name(settings.GetText("General", "Name", "DPS").c_str()),
          period(
              std::max(settings.GetNumber("General", "Period", defaultPeriodMs), shortestPeriodMs)
          ),
          logLevel(settings.GetNumber("General", "LogLevel", 1)),
          sampler(
              FindResources(settings),
              settings.GetText("General", "Language", "en"),
              settings.GetText("General", "Unit", "mib")
          ),
          port(settings.GetNumber("Network", "Port", 0)) {}

    void Run() {
        do {
            line = name + ": " + sampler.Take() + "\n";
            std::cout << line << std::flush;
        } while (WaitUntil(Clock::now() + period));
    }

  private:
    /// Answers the port meanwhile. False when the service is to end.
    bool WaitUntil(Clock::time_point time) {
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now());
            if (left.count() <= 0) {
                return !Poll(0);
            }
            if (Poll(static_cast<int>(left.count()))) {
                return false;
            }
        }
    }

    /// Whether the service is to end.
    bool Poll(int timeoutMs) {
        std::array<pollfd, 2> events{
            {{stop.GetDescriptor(), POLLIN, 0}, {port.GetDescriptor(), POLLIN, 0}}};
        if (::poll(events.data(), events.size(), timeoutMs) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (events[1].revents != 0 && port.Answer(line) && logLevel >= logsRequests) {
            std::cout << name << ": answered a request\n" << std::flush;
        }
        return events[0].revents != 0;
    }

    StopRequest stop; // first: signals that come while the rest is set up are kept
    std::string name;
    std::chrono::milliseconds period;
    unsigned logLevel;
    DPS::KSampler sampler;
    DPS::KStatusPort port;
    std::string line;
};

void RefuseMixedVersions() {
    if (std::string_view(DPS::GetCoreVersion()) != DPS_VERSION) {
        throw std::runtime_error(
            std::string("this is version " DPS_VERSION ", but its library is version ") +
            DPS::GetCoreVersion() + ": install the product again"
        );
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view argument = argc > 1 ? argv[1] : "";
    if (argument == "--version") {
        std::cout << "DPS " DPS_VERSION "\n";
        return 0;
    }
    if (argc > 2 || argument.starts_with('-')) {
        std::cerr << "usage: dpsd [CONFIGURATION]\n";
        return 64;
    }
    try {
        RefuseMixedVersions();
        const DPS::KSettings settings(argc > 1 ? KString(argv[1]) : FindConfiguration());
        Service(settings).Run();
        return 0;
    } catch (const KSUP::KError& error) {
        std::cerr << "dpsd: " << error.GetSummary().c_str() << "\n";
    } catch (const std::exception& error) {
        std::cerr << "dpsd: " << error.what() << "\n";
    }
    return 1;
}
