// SPDX-License-Identifier: MIT
//
// dpsd, the service of the example product: writes one line about the machine a period, and tells the
// last one to whoever connects to its port, until SIGTERM or SIGINT. Runs in the foreground, and reads
// its configuration again when that changes.

#include "dps/core/KPlugins.h"
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
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

using KSUP::KString;
using KSUP::KUtil;
using Clock = std::chrono::steady_clock;

namespace {

constexpr unsigned defaultPeriodMs = 1000;
constexpr unsigned shortestPeriodMs = 10;
// The log levels from which on it does.
constexpr unsigned logsRequests = 2;
constexpr unsigned logsDetails = 3;

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

/// In words. To be called where it was caught.
std::string CurrentError() {
    try {
        throw;
    } catch (const KSUP::KError& error) {
        return error.GetSummary().c_str();
    } catch (const std::exception& error) {
        return error.what();
    }
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

/// What a file is at the moment: another one, or a changed one, is not the same.
class FileState {
  public:
    explicit FileState(const KString& path) noexcept {
        // Without the file these stay 0, which is a state too.
        static_cast<void>(::stat(path.c_str(), &found));
    }

    bool operator==(const FileState& other) const noexcept {
        return found.st_ino == other.found.st_ino && found.st_size == other.found.st_size &&
               found.st_mtim.tv_sec == other.found.st_mtim.tv_sec &&
               found.st_mtim.tv_nsec == other.found.st_mtim.tv_nsec;
    }

  private:
    struct stat found {};
};

/// What the service says and when, as its settings want it.
class Speech {
  public:
    explicit Speech(const DPS::KSettings& settings)
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
          plugins(settings.GetText("Product", "Plugins", "")) {}

    std::chrono::milliseconds GetPeriod() const noexcept { return period; }
    std::string TakeSample() const { return name + ": " + sampler.Take(); }

    void LogStart(const char* what) const {
        std::cout << what << ": log level " << logLevel << ", plug-ins: " << plugins.GetNames()
                  << std::endl;
    }
    void LogSample(const std::string& sample) const {
        std::cout << sample;
        if (logLevel >= logsDetails && plugins.GetCount() != 0) {
            std::cout << " (" << plugins.Tell() << ")";
        }
        std::cout << std::endl;
    }
    void LogRequest() const {
        if (logLevel >= logsRequests) {
            std::cout << name << ": answered a request" << std::endl;
        }
    }

  private:
    std::string name;
    std::chrono::milliseconds period;
    unsigned logLevel;
    DPS::KSampler sampler;
    DPS::KPlugins plugins;
};

class Service {
  public:
    explicit Service(const KString& configurationFile)
        : configuration(configurationFile),
          read(configuration) {
        const DPS::KSettings settings(configuration);
        speech.emplace(settings);
        port.emplace(settings.GetNumber("Network", "Port", 0));
    }

    void Run() {
        speech->LogStart("DPS " DPS_VERSION);
        do {
            FollowConfiguration();
            sample = speech->TakeSample();
            speech->LogSample(sample);
        } while (WaitUntil(Clock::now() + speech->GetPeriod()));
    }

  private:
    /// Everything but the port, which would be closed for those who connect meanwhile.
    void FollowConfiguration() {
        const FileState now(configuration); // first: what changes from here on is seen next time
        if (now == read) {
            return;
        }
        read = now;
        try {
            speech.emplace(Speech(DPS::KSettings(configuration)));
            speech->LogStart("The configuration has changed");
        } catch (...) {
            // Somebody is not done with it yet. The service goes on as it was.
            std::cerr << "dpsd: the changed configuration is of no use: " << CurrentError()
                      << std::endl;
        }
    }

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
            {{stop.GetDescriptor(), POLLIN, 0}, {port->GetDescriptor(), POLLIN, 0}}};
        if (::poll(events.data(), events.size(), timeoutMs) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (events[1].revents != 0 && port->Answer(sample + "\n")) {
            speech->LogRequest();
        }
        return events[0].revents != 0;
    }

    StopRequest stop; // first: signals that come while the rest is set up are kept
    KString configuration;
    FileState read; // before the settings were
    std::optional<Speech> speech;
    std::optional<DPS::KStatusPort> port;
    std::string sample;
};

/// What a setup program wants to know before it starts the service: whether the service could. The
/// port is left out; a service that runs already has it.
void Check(const KString& configuration) {
    const Speech speech{DPS::KSettings(configuration)};
    speech.LogStart("DPS " DPS_VERSION " can read what it needs");
    speech.LogSample(speech.TakeSample());
}

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
    const bool checks = argument == "--check";
    const int configurationAt = checks ? 2 : 1;
    if (argc > configurationAt + 1 || (!checks && argument.starts_with('-'))) {
        std::cerr << "usage: dpsd [--check] [CONFIGURATION]\n";
        return 64;
    }
    try {
        RefuseMixedVersions();
        const KString configuration =
            argc > configurationAt ? KString(argv[configurationAt]) : FindConfiguration();
        if (checks) {
            Check(configuration);
        } else {
            Service(configuration).Run();
        }
        return 0;
    } catch (...) {
        std::cerr << "dpsd: " << CurrentError() << "\n";
        return 1;
    }
}
