// SPDX-License-Identifier: MIT
#include "KSwapper.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <map>
#include <new>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <grp.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KSWEEP {

struct KSwapper::KShared {
    std::atomic<bool> runs{false};
    std::atomic<bool> stops{false};
    std::atomic<std::uint64_t> swaps{0};
    std::atomic<std::uint64_t> temporaries{0};
};

namespace {

constexpr unsigned kinds = 4;
constexpr unsigned kindsWithBait = 8; // mostly that, which can only be given rights in its moment
constexpr unsigned shortestNap = 50;  // microseconds, of a pause between bursts
constexpr unsigned longestNap = 4000;
constexpr unsigned longestDelay = 60000;
constexpr unsigned longestDwell = 40; // microseconds that an entry stays swapped
constexpr unsigned burst = 8;
constexpr unsigned pause = 64; // of a hunt, for other swaps

std::string Beside(const std::string& path, const char* what) {
    const std::size_t slash = path.rfind('/');
    return path.substr(0, slash + 1) + ".swap-" + what + path.substr(slash + 1);
}

bool LeadsTo(const std::string& path, const std::string& target) {
    std::array<char, PATH_MAX> bytes{};
    const ssize_t length = ::readlink(path.c_str(), bytes.data(), bytes.size());
    return length >= 0 && target == std::string(bytes.data(), static_cast<std::size_t>(length));
}

bool IsThere(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

/// What the child does. No failure of a call matters: another comes next.
class KSwapping {
  public:
    KSwapping(std::atomic<std::uint64_t>& itsSwaps, bool itStaysLong, unsigned seed)
        : swaps(itsSwaps),
          staysLong(itStaysLong),
          random((seed * 2654435761U) | 1U) {}

    unsigned Draw(unsigned below) {
        random ^= random << 13U;
        random ^= random >> 17U;
        random ^= random << 5U;
        return random % below;
    }

    void Once(const KSwap& swap) {
        const std::string trap = Beside(swap.path, "trap-");
        const std::string away = Beside(swap.path, "away-");
        if (!IsThere(swap.path)) {
            LayWhereNothingIs(swap, away);
            return;
        }
        Count(::symlink(swap.target.c_str(), trap.c_str()));
        switch (swap.bait.empty() ? Draw(kinds) : Draw(kindsWithBait)) {
        case 0:
            Count(::rename(swap.path.c_str(), away.c_str()));
            Dwell();
            break;
        case 1:
            Count(::rename(swap.path.c_str(), away.c_str()));
            LayLink(swap);
            break;
        case 2:
            Count(::rename(swap.path.c_str(), away.c_str()));
            if (swap.byPipe) {
                Count(::mkfifo(swap.path.c_str(), S_IRUSR | S_IWUSR));
                Dwell();
                Count(::unlink(swap.path.c_str()));
            }
            break;
        case 3:
            Exchange(swap.path, trap);
            Dwell();
            Exchange(swap.path, trap);
            break;
        default:
            Exchange(swap.path, swap.bait);
            Dwell();
            Exchange(swap.path, swap.bait);
        }
        Straighten(swap);
    }

    /// Everything where it belongs.
    void Straighten(const KSwap& swap) {
        const std::string trap = Beside(swap.path, "trap-");
        const std::string away = Beside(swap.path, "away-");
        if (LeadsTo(swap.path, swap.target) && IsThere(trap) && !LeadsTo(trap, swap.target)) {
            Exchange(swap.path, trap);
        }
        if (IsThere(away)) { // the other program may have laid something meanwhile
            Count(::rename(away.c_str(), swap.path.c_str()));
        }
    }

    void Leave(const KSwap& swap) {
        Straighten(swap);
        ::unlink(Beside(swap.path, "trap-").c_str());
        if (LeadsTo(swap.path, swap.target)) {
            ::unlink(swap.path.c_str());
        }
    }

    bool Exchange(const std::string& one, const std::string& other) {
        return Count(::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE));
    }

    bool Lay(const std::string& target, const std::string& path) {
        return Count(::symlink(target.c_str(), path.c_str()));
    }

  private:
    void LayWhereNothingIs(const KSwap& swap, const std::string& away) {
        if (IsThere(away)) {
            Count(::rename(away.c_str(), swap.path.c_str()));
        } else {
            LayLink(swap);
        }
    }

    void LayLink(const KSwap& swap) {
        if (Count(::symlink(swap.target.c_str(), swap.path.c_str()))) {
            Dwell();
            Count(::unlink(swap.path.c_str()));
        }
    }

    bool Count(int result) {
        if (result == 0) {
            swaps.fetch_add(1, std::memory_order_relaxed);
        }
        return result == 0;
    }

    /// Mostly for a moment; now and then for as long as a rule takes, so that the other program
    /// meets the same thing several times.
    void Dwell() {
        using Clock = std::chrono::steady_clock;
        if (staysLong && Draw(burst) == 0) {
            ::usleep(shortestNap + Draw(longestNap));
            return;
        }
        const auto end = Clock::now() + std::chrono::microseconds(Draw(longestDwell));
        while (Clock::now() < end) {
        }
    }

    std::atomic<std::uint64_t>& swaps;
    const bool staysLong;
    std::uint32_t random;
};

/// Waits for temporary files to appear, without sleeping: they are there for some microseconds.
class KHunt {
  public:
    KHunt(KSwapping& itsSwapping, const std::vector<std::string>& itsDirectories, std::string to)
        : swapping(itsSwapping),
          directories(itsDirectories),
          target(std::move(to)),
          events(::inotify_init1(IN_NONBLOCK)) {}

    /// Of directories that may have come, or become another.
    void Watch() {
        for (const std::string& directory : directories) {
            const int number = ::inotify_add_watch(events, directory.c_str(), IN_CREATE);
            if (number >= 0) {
                watched[number] = directory;
                swapping.Lay(target, directory + "/.swap-hunted");
            }
        }
    }

    /// Returns how many swaps there were.
    unsigned Once() {
        alignas(inotify_event) std::array<char, 4096> bytes{};
        const ssize_t length = ::read(events, bytes.data(), bytes.size());
        unsigned found = 0;
        for (ssize_t at = 0; at < length;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(
                bytes.data() + at
            ); // NOLINT(*-reinterpret-cast): as they come
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if (event->len > 0 && std::string_view(event->name).starts_with(".inspp-")) {
                found += Take(watched[event->wd], event->name);
            }
        }
        return found;
    }

  private:
    unsigned Take(const std::string& directory, const char* name) {
        const std::string path = directory + "/" + name;
        const std::string link = directory + "/.swap-hunted";
        // An odd number of times: the link is what the program gives its name to.
        const unsigned times = 1 + 2 * swapping.Draw(3);
        unsigned found = 0;
        while (found < times && swapping.Exchange(path, link)) {
            ++found;
        }
        if (found % 2 == 1) { // what the program wrote; a new link for the next one
            ::unlink(link.c_str());
            swapping.Lay(target, link);
        }
        return found;
    }

    KSwapping& swapping;
    const std::vector<std::string>& directories;
    const std::string target;
    const int events;
    std::map<int, std::string> watched;
};

} // namespace

KSwapper::KSwapper(
    std::vector<KSwap> itsSwaps, std::vector<std::string> itsWatched, std::string itsTarget
)
    : swaps(std::move(itsSwaps)),
      watched(std::move(itsWatched)),
      target(std::move(itsTarget)) {
    void* const memory =
        ::mmap(nullptr, sizeof(KShared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "mmap");
    }
    shared = new (memory) KShared();
}

KSwapper::~KSwapper() {
    Stop();
    ::munmap(shared, sizeof(KShared));
}

void KSwapper::Start(Pace pace, unsigned seed) {
    shared->stops = false;
    shared->runs = false;
    child = ::fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        Swap(pace, seed);
    }
    while (!shared->runs && ::waitpid(child, nullptr, WNOHANG) == 0) {
        ::usleep(shortestNap);
    }
    if (!shared->runs) {
        throw std::runtime_error("the swapper does not run");
    }
}

void KSwapper::Stop() {
    if (child > 0) {
        shared->stops = true;
        ::waitpid(child, nullptr, 0);
        child = -1;
    }
}

void KSwapper::Swap(Pace pace, unsigned seed) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::setgroups(0, nullptr) != 0 || ::setresgid(sweeper, sweeper, sweeper) != 0 ||
        ::setresuid(sweeper, sweeper, sweeper) != 0) {
        ::_exit(1);
    }
    KSwapping swapping(shared->swaps, pace != Pace::Full, seed);
    shared->runs = true;
    if (pace == Pace::Later) {
        ::usleep(swapping.Draw(longestDelay));
    }
    KHunt hunt(swapping, watched, target);
    for (unsigned nth = 0; !shared->stops; ++nth) {
        if (nth % pause == 0) {
            hunt.Watch();
        }
        if (!watched.empty()) {
            shared->temporaries += hunt.Once();
        }
        if (nth % pause == 0 || watched.empty()) {
            swapping.Once(swaps[nth % swaps.size()]);
        }
        if (pace == Pace::Bursts && watched.empty() && swapping.Draw(burst) == 0) {
            ::usleep(shortestNap + swapping.Draw(longestNap));
        }
    }
    for (const KSwap& swap : swaps) {
        swapping.Leave(swap);
    }
    ::_exit(0);
}

std::uint64_t KSwapper::GetSwaps() const noexcept {
    return shared->swaps;
}

std::uint64_t KSwapper::GetTemporaries() const noexcept {
    return shared->temporaries;
}

} // namespace KSWEEP
