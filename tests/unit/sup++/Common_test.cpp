// SPDX-License-Identifier: MIT
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/SvcCommandLine.h>
#include <sup++/SvcTrace.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <system_error>
#include <thread>

#include <dirent.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

// Tests of what happens without memory ask for more than there is: that is to be null, not the end.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1:die_after_fork=0";
}

namespace KSUP {

void PrintTo(const KString& text, std::ostream* out) {
    *out << '"' << KTEST::TemporaryTree::Escaped(text.c_str()) << '"';
}

} // namespace KSUP

namespace KTEST {

namespace {

constexpr unsigned hangSeconds = 120;

/// The tests raise errors by the hundred; the machine's log is not the place for them.
class QuietLogger : public testing::Environment {
  public:
    void SetUp() override { SvcGetGlobalLogger()->UseNothing(); }
};

const testing::Environment* const quietLogger =
    testing::AddGlobalTestEnvironment(new QuietLogger); // gtest owns it

void Check(long result, const char* call) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), call);
    }
}

/// The system calls themselves: the C library's functions change every thread.
void DropPrivileges() {
    Check(::syscall(SYS_setgroups, 0, nullptr), "setgroups");
    Check(::syscall(SYS_setresgid, nobodyId, nobodyId, nobodyId), "setresgid");
    Check(::syscall(SYS_setresuid, nobodyId, nobodyId, nobodyId), "setresuid");
    // The change took /proc/self/fd away from the process.
    Check(::prctl(PR_SET_DUMPABLE, 1), "prctl");
}

} // namespace

std::string SystemInfo(const std::string& path, int errorNumber) {
    return path + ": " + std::generic_category().message(errorNumber);
}

std::vector<std::string> TextsOf(const std::vector<KSUP::KString>& texts) {
    std::vector<std::string> result;
    result.reserve(texts.size());
    for (const KSUP::KString& text : texts) {
        result.emplace_back(text.c_str());
    }
    return result;
}

HangGuard::HangGuard() {
    ::alarm(hangSeconds);
}

HangGuard::~HangGuard() {
    ::alarm(0);
}

UmaskGuard::UmaskGuard(mode_t mask) : former(::umask(mask)) {}

UmaskGuard::~UmaskGuard() {
    ::umask(former);
}

bool IsRoot() {
    return ::geteuid() == 0;
}

void AsNobody(const boost::function<void()>& body) {
    if (!IsRoot()) {
        body();
        return;
    }
    std::exception_ptr thrown;
    std::thread([&] {
        try {
            DropPrivileges();
            body();
        } catch (...) {
            thrown = std::current_exception();
        }
    }).join();
    if (thrown) {
        std::rethrow_exception(thrown);
    }
}

void GiveToNobody(TemporaryTree& tree, const std::string& relative) {
    if (IsRoot()) {
        const mode_t mode = tree.Mode(relative);
        tree.SetOwner(relative, nobodyId, nobodyId);
        tree.SetMode(relative, mode); // a change of the owner drops set-id bits
    }
}

int InChild(const boost::function<int()>& body) {
    const pid_t child = ::fork();
    Check(child, "fork");
    if (child == 0) {
        int status = 125;
        try {
            status = body();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "child: %s\n", error.what());
        } catch (const KSUP::KError& error) {
            std::fprintf(stderr, "child: %s\n", error.GetSummary().c_str());
        }
        ::_exit(status);
    }
    int status = 0;
    Check(::waitpid(child, &status, 0), "waitpid");
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool PassesAlone(const std::string& test, const std::string& option) {
    const std::string filter = "--gtest_filter=" + test;
    testing::internal::CaptureStdout();
    const int status = InChild([&] {
        ::execl(
            "/proc/self/exe",
            "sup_unit_tests",
            filter.c_str(),
            "--gtest_also_run_disabled_tests",
            option.c_str(),
            nullptr
        );
        return 1;
    });
    const std::string output = testing::internal::GetCapturedStdout();
    const bool passed = status == 0 && output.find("[  PASSED  ] 1 test") != std::string::npos;
    if (!passed) {
        std::fprintf(stderr, "%s", output.c_str());
    }
    return passed;
}

void RestoreCommandLine() {
    std::ifstream file("/proc/self/cmdline");
    std::vector<std::string> arguments;
    for (std::string argument; std::getline(file, argument, '\0');) {
        arguments.push_back(argument);
    }
    std::vector<const char*> pointers;
    for (const std::string& argument : arguments) {
        pointers.push_back(argument.c_str());
    }
    EXPECT_EQ(SvcSetCommandLine(static_cast<unsigned>(pointers.size()), pointers.data()), 0U);
}

std::vector<int> OpenDescriptors() {
    std::vector<int> numbers;
    DIR* directory = ::opendir("/proc/self/fd");
    while (const dirent* entry = ::readdir(directory)) {
        const int number = std::atoi(static_cast<const char*>(entry->d_name));
        if (entry->d_name[0] != '.' && number != ::dirfd(directory)) {
            numbers.push_back(number);
        }
    }
    ::closedir(directory);
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

namespace {

TEST(TestHelpersTest, AsNobodyHasNoPrivilegesAndLeavesTheOthersTheirs) {
    const uid_t own = ::geteuid();
    uid_t within = 0;
    AsNobody([&] { within = static_cast<uid_t>(::syscall(SYS_geteuid)); });
    EXPECT_NE(within, 0U);
    EXPECT_EQ(::geteuid(), own);
}

TEST(TestHelpersTest, AChildReportsWhatItReturnedOrWhatEndedIt) {
    EXPECT_EQ(InChild([] { return 7; }), 7);
    EXPECT_EQ(InChild([] { return ::raise(SIGKILL); }), 128 + SIGKILL);
}

TEST(TestHelpersTest, ATemporaryTreeListsWhatWasPutIntoIt) {
    const UmaskGuard mask(077);
    TemporaryTree tree;
    tree.Write("a/text", "one\n\"two\"\\\x01\xff", 0640);
    tree.Write("a/long", std::string(81, 'x'), 04755);
    tree.Directory("b", 0555);
    tree.Link("b.link", "nowhere\n");
    tree.Fifo("queue");
    EXPECT_THAT(
        tree.List(),
        testing::ElementsAre(
            "d 0755 a",
            "f 4755 a/long 81 bytes " + TemporaryTree::DigestOf(std::string(81, 'x')),
            R"(f 0640 a/text "one\n\"two\"\\\x01\xff")",
            "d 0555 b",
            R"(l b.link -> nowhere\n)",
            "p 0644 queue"
        )
    );
}

TEST(TestHelpersTest, ATemporaryTreeLeavesNothingBehind) {
    std::string root;
    AsNobody([&] {
        TemporaryTree tree;
        root = tree.Path();
        tree.Write("closed/deeper/file", "x", 0);
        tree.Link("closed/deeper/out", "/");
        tree.SetMode("closed/deeper", 0);
        tree.SetMode("closed", 0);
    });
    struct stat status {};
    EXPECT_NE(::lstat(root.c_str(), &status), 0) << root;
}

} // namespace

} // namespace KTEST
