// SPDX-License-Identifier: MIT
#pragma once

#include "../support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include <sys/services/KServiceControl.h>

namespace KTEST {

/// The service that tests make; gone before and after each group of them.
inline constexpr const char* service = "inspp-test";
inline constexpr const char* unitPath = "/etc/systemd/system/inspp-test.service";
inline constexpr const char* enablingLink =
    "/etc/systemd/system/multi-user.target.wants/inspp-test.service";

// Services by what their program does, as scripts of a shell.
inline constexpr const char* sleeps = "exec sleep 1000";
inline constexpr const char* endsWith1 = "exit 1";
inline constexpr const char* endsWith0 = "exit 0";
inline constexpr const char* ignoresTerm = "trap '' TERM; while :; do sleep 1; done";

/// What a shell command prints, without the last line breaks. systemd's own programs are asked with
/// it: the measure is what they say, not what the library says.
std::string Output(const std::string& command);
/// What systemd says of the service.
std::string Property(const std::string& name);
/// Its active and its sub state, as in "active running".
std::string StateOfService();
std::string ReadText(const std::string& path);
void WriteText(const std::string& path, const std::string& text);

/// Waits for what has to come; what does not is for the test to find.
void Await(
    const std::function<bool()>& hasCome, std::chrono::milliseconds limit = std::chrono::seconds(60)
);
std::chrono::steady_clock::duration TimeOf(const std::function<void()>& call);

/// A real systemd and one service.
class ServicesTest : public ::testing::Test {
  protected:
    ServicesTest() { CleanUp(); }
    static void TearDownTestSuite() { CleanUp(); }
    /// Also brings back a bus that was stopped and a systemd that was hidden.
    static void CleanUp();

    /// Writes a program that is a shell script.
    std::string GivenProgram(const std::string& script, const std::string& name = "program") const;
    /// A service of ours with such a program.
    void GivenService(const std::string& script) const;
    void GivenRunningService(const std::string& script = sleeps) const;
    /// A unit file of somebody else's, with these lines in section [Service].
    static void GivenForeignUnit(const std::string& lines, const std::string& path = unitPath);
    /// A setting of an administrator's own for the service.
    static void GivenSetting(const std::string& line);

    static unsigned
    Create(const std::string& program, const std::string& arguments = "", const char* display = "");
    /// The state that the library tells, or 1000 and the status with which it does not.
    static unsigned State();
    static void ExpectErrorText(const std::string& part);
    /// The library's insides with other limits, for what a test cannot wait for.
    static KSYS::KServiceControl Impatient(std::chrono::milliseconds limit);
    static void StopBus();
    /// Makes the machine look like one that systemd does not run.
    static void HideSystemd();
    static void ShowSystemd();

    mutable TemporaryTree tree;
};

} // namespace KTEST
