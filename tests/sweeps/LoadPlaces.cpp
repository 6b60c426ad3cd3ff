// SPDX-License-Identifier: MIT
//
// Of the load sweep: what a machine may lack.
#include "Files.h"
#include "LoadParts.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <utility>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KSWEEP {

namespace {

constexpr int ruleFailed = 1;
constexpr int cannotWrite = 73;

/// A file system of so many KiB, where the product goes or where it is remembered.
class KSmallDisk {
  public:
    KSmallDisk(std::string itsPlace, unsigned kibibytes) : place(std::move(itsPlace)) {
        Shell("mkdir -p " + place);
        Resize("", kibibytes);
    }
    ~KSmallDisk() { ::umount2(place.c_str(), MNT_DETACH); }
    KSmallDisk(const KSmallDisk&) = delete;
    KSmallDisk& operator=(const KSmallDisk&) = delete;

    void MakeRoom() const {
        ::unlink((place + "/filler").c_str());
        constexpr unsigned enough = 100000;
        Resize("remount,", enough);
    }
    /// Takes all that is left.
    void Fill() const {
        std::ofstream filler(place + "/filler", std::ios::binary);
        const std::string block(4096, 'x');
        while (filler.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
        }
    }

  private:
    void Resize(const char* again, unsigned kibibytes) const {
        Shell(
            "mount -t tmpfs -o " + std::string(again) +
            "mode=755,size=" + std::to_string(kibibytes) + "k none " + place
        );
    }

    std::string place;
};

std::string TryDisk(const KLoadProduct& product, const char* place, unsigned size, unsigned delay) {
    const std::vector<int> ends = {0, ruleFailed, cannotWrite};
    product.GetMachine().PutBack("nothing");
    const KSmallDisk disk(place, size);
    KProcess process(product.Words("install"));
    if (delay > 0) {
        ::usleep(delay);
        disk.Fill();
    }
    std::string wrong = WrongEnd(process.Wait(), ends);
    disk.MakeRoom();
    return wrong.empty() ? product.Converges("install", "installed") : wrong;
}

struct KLimit {
    const char* name;
    __rlimit_resource_t resource;
    std::vector<rlim_t> values;
};

std::string TryLimit(
    const KLoadProduct& product, const KLimit& limit, rlim_t value, const std::string& command
) {
    constexpr int notRun = 127; // by the loader of programs, which says why
    const bool installs = command == "install";
    product.GetMachine().PutBack(installs ? "nothing" : "installed");
    const auto set = [&] {
        const rlimit both = {value, value};
        ::setrlimit(limit.resource, &both);
    };
    KProcess process(product.Words(command), set);
    const KProcessEnd end = process.Wait();
    constexpr int internal = 70;
    std::string wrong =
        WrongEnd(end, {0, ruleFailed, cannotWrite, 64, 65, 66, 69, internal, 75, notRun});
    // What it says goes to a file too.
    const bool isMute = limit.resource == RLIMIT_FSIZE && value == 0 && end.exitCode == cannotWrite;
    if (!wrong.empty() && !isMute) {
        return wrong;
    }
    return product.Converges(command, installs ? "installed" : "upgraded");
}

} // namespace

void LoadFullDisks(const KLoad& load) {
    constexpr unsigned places = 50;
    constexpr unsigned step = 24;    // KiB
    constexpr unsigned room = 4000;  // KiB, when it is filled meanwhile
    constexpr unsigned pause = 2500; // microseconds
    for (unsigned number = 0; number < places; number += load.every) {
        const unsigned nth = number / 4 + 1;
        const unsigned kind = number / load.every;
        const char* const place = kind % 2 == 0 ? "/opt" : "/var/lib";
        const bool isFilled = kind % 4 >= 2;
        const std::string at = std::string(place) + (isFilled ? ", filled meanwhile " : ", ");
        const std::string wrong = isFilled ? TryDisk(load.product, place, room, nth * pause)
                                           : TryDisk(load.product, place, nth * step, 0);
        load.report.Add("disk", at + std::to_string(nth), wrong);
    }
}

void LoadLimits(const KLoad& load) {
    constexpr rlim_t kibibyte = 1024;
    constexpr rlim_t mebibyte = kibibyte * kibibyte;
    const std::vector<KLimit> limits = {
        {"FSIZE", RLIMIT_FSIZE, {0, 100, 4 * kibibyte, 16 * kibibyte, mebibyte}},
        {"NOFILE", RLIMIT_NOFILE, {8, 12, 16, 20, 24, 32, 64}},
        {"AS",
         RLIMIT_AS,
         {16 * mebibyte, 32 * mebibyte, 48 * mebibyte, 64 * mebibyte, 100 * mebibyte}},
        {"STACK", RLIMIT_STACK, {128 * kibibyte, 256 * kibibyte, mebibyte}},
        {"DATA", RLIMIT_DATA, {mebibyte, 4 * mebibyte, 8 * mebibyte, 16 * mebibyte}},
        {"CPU", RLIMIT_CPU, {1, 2}}};
    for (const KLimit& limit : limits) {
        for (const rlim_t value : limit.values) {
            for (const char* const command : {"install", "upgrade"}) {
                const std::string at =
                    std::string(limit.name) + " " + std::to_string(value) + " " + command;
                load.report.Add("limits", at, TryLimit(load.product, limit, value, command));
            }
        }
    }
    load.report.Tell("SKIPPED: RLIMIT_NPROC, which does not hold for root");
}

void LoadMissingSystem(const KLoad& load) {
    for (const char* const place : {"/proc", "/dev", "/run", "/tmp", "/sys"}) {
        const auto hide = [&] {
            const bool isHidden =
                ::unshare(CLONE_NEWNS) == 0 &&
                ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                ::mount("none", place, "tmpfs", 0, "mode=755") == 0;
            // The loader finds the libraries of a build by /proc.
            const std::string& program = load.product.GetProgram();
            const std::string libraries = program.substr(0, program.rfind('/')) + "/../lib";
            if (!isHidden || ::setenv("LD_LIBRARY_PATH", libraries.c_str(), 1) != 0) {
                ::_exit(126);
            }
        };
        for (const char* const command : {"install", "upgrade"}) {
            const bool installs = command == std::string("install");
            load.product.GetMachine().PutBack(installs ? "nothing" : "installed");
            const KProcessEnd end = KProcess(load.product.Words(command), hide).Wait();
            std::string wrong = WrongEnd(end, {0, ruleFailed, 69, cannotWrite});
            const char* const state = installs ? "installed" : "upgraded";
            wrong = wrong.empty() ? load.product.Converges(command, state) : wrong;
            load.report.Add("system", std::string("no ") + place + " " + command, wrong);
        }
    }
}

void LoadClock(const KLoad& load) {
    const std::vector<std::pair<std::string, std::string>> commands = {
        {"install", "installed"},
        {"upgrade", "upgraded"},
        {"remove", "removed"},
        {"status", "installed"}};
    for (const auto& [command, state] : commands) {
        load.product.GetMachine().PutBack("installed");
        Shell("find /opt/load /etc/load /var/lib/ins++ /srv/elsewhere /srv/loads/load/1.0 "
              "-exec touch -h -d '+3 years' {} +; touch -d '+3 years' '/var/log/load Setup Log.txt'"
        );
        load.report.Add("clock", command, load.product.Converges(command, state));
    }
    load.report.Tell("by times of files in the future; the clock itself is the whole machine's");
}

void LoadStops(const KLoad& load) {
    constexpr unsigned goes = 1000; // microseconds
    constexpr unsigned stands = 50000;
    const std::vector<std::array<std::string, 3>> commands = {
        {"install", "nothing", "installed"},
        {"install", "installed", "installed"},
        {"upgrade", "installed", "upgraded"},
        {"remove", "installed", "removed"}};
    unsigned stops = 0;
    for (const auto& [command, from, to] : commands) {
        load.product.GetMachine().PutBack(from);
        KProcess process(load.product.Words(command));
        while (process.GoesOn(goes)) {
            ::kill(process.GetId(), SIGSTOP);
            ::usleep(stands);
            ::kill(process.GetId(), SIGCONT);
            ++stops;
        }
        std::string wrong = WrongEnd(process.Wait(), {0});
        wrong = wrong.empty() ? load.product.DiffersFrom(to) : wrong;
        load.report.Add("stops", command + " from " + from, wrong);
    }
    load.report.Tell(std::to_string(stops) + " times, for 50 ms each");
}

} // namespace KSWEEP
