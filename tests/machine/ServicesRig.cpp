// SPDX-License-Identifier: MIT
#include "ServicesRig.h"

#include <sup++/SvcService.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <thread>

namespace KTEST {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

constexpr const char* runningSign = "/run/systemd/system";
constexpr const char* hiddenSign = "/run/systemd/system.hidden";
constexpr const char* dropIns = "/etc/systemd/system/inspp-test.service.d";

bool IgnoresTerm() {
    constexpr unsigned long long mask = 1ULL << (SIGTERM - 1U);
    const std::string text = Output("grep SigIgn /proc/" + Property("MainPID") + "/status");
    const std::size_t at = text.find(':');
    return at != std::string::npos && (std::stoull(text.substr(at + 1), nullptr, 16) & mask) != 0;
}

} // namespace

std::string Output(const std::string& command) {
    std::FILE* const pipe = ::popen(("{ " + command + "\n} 2>&1").c_str(), "re");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot run " + command);
    }
    std::string output;
    std::array<char, 4096> buffer{};
    while (const std::size_t bytes = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
        output.append(buffer.data(), bytes);
    }
    ::pclose(pipe);
    while (output.ends_with('\n')) {
        output.pop_back();
    }
    return output;
}

std::string Property(const std::string& name) {
    return Output("systemctl show -P " + name + " inspp-test.service");
}

std::string StateOfService() {
    return Property("ActiveState") + ' ' + Property("SubState");
}

std::string ReadText(const std::string& path) {
    return Output("cat '" + path + "'");
}

void WriteText(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    std::FILE* const file = std::fopen(path.c_str(), "we");
    if (file == nullptr || std::fputs(text.c_str(), file) < 0 || std::fclose(file) != 0) {
        throw std::runtime_error("cannot write " + path);
    }
}

void Await(const std::function<bool()>& hasCome, std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    while (!hasCome() && Clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

Clock::duration TimeOf(const std::function<void()>& call) {
    const auto start = Clock::now();
    call();
    return Clock::now() - start;
}

void ServicesTest::CleanUp() {
    ShowSystemd();
    Output("systemctl kill -s CONT dbus.service; systemctl start dbus.socket dbus.service\n"
           "systemctl kill -s KILL inspp-test.service; systemctl stop inspp-test.service\n"
           "systemctl disable inspp-test.service");
    for (const char* path :
         {unitPath,
          "/usr/local/lib/systemd/system/inspp-test.service",
          dropIns,
          "/etc/inspp-test"}) {
        fs::remove_all(path);
    }
    Output("systemctl daemon-reload; systemctl reset-failed inspp-test.service");
    EXPECT_EQ(SvcSetOfflineServices(0, 0), 0U);
}

std::string ServicesTest::GivenProgram(const std::string& script, const std::string& name) const {
    tree.Write(name, "#!/bin/sh\n" + script + "\n", 0755);
    return tree.Path(name);
}

void ServicesTest::GivenService(const std::string& script) const {
    ASSERT_EQ(Create(GivenProgram(script)), 0U) << SvcGetServiceErrorText();
}

void ServicesTest::GivenRunningService(const std::string& script) const {
    GivenService(script);
    ASSERT_EQ(SvcStartService(0, service), 0U) << SvcGetServiceErrorText();
    ASSERT_EQ(StateOfService(), "active running");
    if (script == ignoresTerm) { // once its shell got that far
        Await(IgnoresTerm);
        ASSERT_TRUE(IgnoresTerm());
    }
}

void ServicesTest::GivenForeignUnit(const std::string& lines, const std::string& path) {
    WriteText(path, "[Service]\n" + lines + "\n[Install]\nWantedBy=multi-user.target\n");
    Output("systemctl daemon-reload");
}

void ServicesTest::GivenSetting(const std::string& line) {
    WriteText(std::string(dropIns) + "/test.conf", "[Service]\n" + line + "\n");
    Output("systemctl daemon-reload");
}

unsigned ServicesTest::Create(
    const std::string& program, const std::string& arguments, const char* display
) {
    return SvcCreateService(0, service, display, program.c_str(), arguments.c_str());
}

unsigned ServicesTest::State() {
    unsigned state = 77;
    const unsigned status = SvcGetServiceStatus(0, service, &state);
    return status == 0 ? state : 1000 + status;
}

void ServicesTest::ExpectErrorText(const std::string& part) {
    using ::testing::AllOf;
    EXPECT_THAT(
        SvcGetServiceErrorText(),
        AllOf(::testing::StartsWith("inspp-test.service: "), ::testing::HasSubstr(part))
    );
}

KSYS::KServiceControl ServicesTest::Impatient(std::chrono::milliseconds limit) {
    KSYS::KServiceControl::Limits limits;
    limits.start = limits.stop = limit;
    limits.settle = std::chrono::milliseconds(0);
    return {service, "", limits};
}

void ServicesTest::StopBus() {
    Output("systemctl stop dbus.socket dbus.service");
}

void ServicesTest::HideSystemd() {
    fs::rename(runningSign, hiddenSign);
}

void ServicesTest::ShowSystemd() {
    if (fs::exists(hiddenSign)) {
        fs::rename(hiddenSign, runningSign);
    }
}

} // namespace KTEST
