// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/files/FileCalls.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using KSYS::KDescriptor;

unsigned WriteAll(int file, const std::string& bytes) {
    return KSYS::WriteAll(file, bytes.data(), bytes.size());
}

struct Pipe {
    explicit Pipe(int flags = 0) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC | flags), 0);
        reading = KDescriptor(ends[0]);
        writing = KDescriptor(ends[1]);
    }
    KDescriptor reading;
    KDescriptor writing;
};

std::atomic<int> alarms{0}; // NOLINT: a handler has no object

/// Alarms for the thread that makes it, a thousand a second, each of which interrupts a call.
struct Alarms {
    Alarms() {
        struct sigaction action {};
        action.sa_handler = [](int) { alarms.fetch_add(1); };
        ::sigaction(SIGALRM, &action, &before);
        const itimerval often{{0, 1000}, {0, 1000}};
        ::setitimer(ITIMER_REAL, &often, nullptr);
    }
    ~Alarms() {
        const itimerval never{};
        ::setitimer(ITIMER_REAL, &never, nullptr);
        ::sigaction(SIGALRM, &before, nullptr);
    }
    Alarms(const Alarms&) = delete;
    Alarms& operator=(const Alarms&) = delete;

    struct sigaction before {};
};

TEST(WriteAllTest, GoesOnWhereACallWasInterrupted) {
    Pipe pipe;
    const std::string bytes(std::size_t{1} << 20U, 'x'); // more than a pipe holds
    std::size_t taken = 0;
    std::atomic<bool> isOver{false};
    sigset_t alarm;
    ::sigemptyset(&alarm);
    ::sigaddset(&alarm, SIGALRM);
    ::pthread_sigmask(SIG_BLOCK, &alarm, nullptr); // so that the reader, too, gets none
    std::thread reader([&] {
        // With the pipe full: the first alarm cuts a call short, the next end it.
        while (alarms < 5 && !isOver) {
            std::this_thread::yield();
        }
        std::string chunk(65536, '\0');
        for (ssize_t count = 0;
             (count = ::read(pipe.reading.Get(), chunk.data(), chunk.size())) > 0;) {
            taken += static_cast<std::size_t>(count);
        }
    });
    ::pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    {
        const Alarms often;
        EXPECT_EQ(WriteAll(pipe.writing.Get(), bytes), 0U);
    }
    isOver = true;
    pipe.writing = KDescriptor();
    reader.join();
    EXPECT_EQ(taken, bytes.size());
}

TEST(WriteAllTest, TellsWhatCannotBeWritten) {
    Pipe pipe(O_NONBLOCK);
    EXPECT_EQ(
        WriteAll(pipe.writing.Get(), std::string(std::size_t{1} << 20U, 'x')), unsigned{EAGAIN}
    );
    EXPECT_EQ(WriteAll(-1, "x"), unsigned{EBADF});
    EXPECT_EQ(WriteAll(-1, ""), 0U);
}

} // namespace
