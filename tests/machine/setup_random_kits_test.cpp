// SPDX-License-Identifier: MIT
//
// What a plan tells is what a run does: kits made by chance are planned, the plan's actions are done one
// by one, and then the kit is installed on the same machine. Both trees and both exit codes are one.
#include "RandomKit.h"
#include "SetupRig.h"

#include <sup++/KError.h>
#include <sup++/KProfile.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using ::testing::IsEmpty;
using Json = nlohmann::json;
using KTEST::RandomKit;

/// Numbers of the environment, for a longer run or the repetition of one kit.
unsigned Setting(const char* name, unsigned otherwise) {
    const char* text = std::getenv(name); // NOLINT: nobody changes the environment
    return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

std::string Absolute(const std::string& path) {
    return path.starts_with('/') ? path : "/" + path;
}

void CopyBytes(const Json& action, const std::string& path) {
    const std::string bytes = KTEST::Slurp(Absolute(action["source"]));
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0) << path;
    ASSERT_EQ(::write(file, bytes.data(), bytes.size()), ssize_t(bytes.size()));
    const std::string mode = action["mode"];
    ::fchmod(file, static_cast<mode_t>(std::strtoul(mode.c_str(), nullptr, 8)));
    ::close(file);
}

/// "[section] key=value"
void ChangeOption(const std::string& path, const std::string& option, bool isPut) {
    const std::size_t section = option.find("] ");
    const std::size_t equals = option.find('=', section);
    KSUP::KProfile profile{KSUP::KString(path)};
    const KSUP::KString name(option.substr(1, section - 1));
    const KSUP::KString key(option.substr(section + 2, equals - section - 2));
    if (isPut) {
        profile.PutString(name, key, KSUP::KString(option.substr(equals + 1)));
    } else {
        profile.DeleteKey(name, key);
    }
}

void Perform(const Json& action) {
    const std::string kind = action["action"];
    if (action.value("missing", false) || !action.contains("path")) {
        return;
    }
    const std::string path = Absolute(action["path"]);
    if (kind == "create directory") {
        ASSERT_EQ(::mkdir(path.c_str(), 0755), 0) << path;
        ::chmod(path.c_str(), 0755);
    } else if (kind == "copy file") {
        CopyBytes(action, path);
    } else if (kind == "delete file") {
        ASSERT_EQ(::unlink(path.c_str()), 0) << path;
    } else if (kind == "delete directory") {
        ASSERT_EQ(::rmdir(path.c_str()), 0) << path;
    } else if (kind == "make link") {
        ::unlink(path.c_str());
        ASSERT_EQ(::symlink(std::string(action["target"]).c_str(), path.c_str()), 0) << path;
    } else if (kind == "create profile") {
        KSUP::KProfile().Create(KSUP::KString(path));
    } else if (kind == "put option" || kind == "remove option") {
        ChangeOption(path, action["option"], kind == "put option");
    }
}

class RandomKitsTest : public KTEST::SetupProgramTest {
  protected:
    RandomKitsTest() { CleanUp(true); }
    ~RandomKitsTest() override { CleanUp(true); }

    void CleanUp(bool servicesToo) {
        RandomKit::Wipe();
        Forget();
        if (servicesToo) {
            Run("systemctl stop inspp-random inspp-random-2; systemctl disable inspp-random "
                "inspp-random-2; rm -f /etc/systemd/system/inspp-random*.service; systemctl "
                "daemon-reload; systemctl reset-failed inspp-random inspp-random-2");
        }
    }
    static std::vector<std::string> Look() {
        return KTEST::MachineTree({RandomKit::product, "/etc/setuptest"});
    }
    /// What is known to fail is not begun, unless a command before it may change that.
    static bool IsRefused(const Json& plan) {
        for (const Json& rule : plan["rules"]) {
            for (const Json& action : rule["actions"]) {
                if (action["action"] == "start command") {
                    return false;
                }
                if (action.contains("obstacle")) {
                    return true;
                }
            }
        }
        return false;
    }
    /// Does what the plan says up to where it says that the run would end.
    static void Follow(const Json& plan) {
        if (!plan.contains("rules") || plan.contains("refusal") || IsRefused(plan)) {
            return;
        }
        for (const Json& rule : plan["rules"]) {
            for (const Json& action : rule["actions"]) {
                if (action.contains("obstacle")) {
                    return;
                }
                try {
                    Perform(action);
                } catch (const KSUP::KError& error) {
                    ADD_FAILURE() << action << error.GetSummary().c_str();
                }
            }
        }
        if (!plan.contains("recordObstacle")) {
            const std::string product = fs::path(fs::read_symlink("/etc/setuptest/setuptest"))
                                            .parent_path()
                                            .parent_path()
                                            .parent_path();
            const std::string record = product + "/config/st.ini";
            ChangeOption(record, "[installControl] installedVersion=1.5", true);
            ChangeOption(record, "[installControl] buildNumber=9", true);
        }
    }
};

TEST_F(RandomKitsTest, PlanAndRunAgree) {
    const unsigned first = Setting("INSPP_RANDOM_SEED", 1);
    const unsigned count = Setting("INSPP_RANDOM_KITS", 60);
    unsigned done = 0;
    for (unsigned seed = first; seed < first + count; ++seed) {
        const RandomKit kit(seed, tree.Path("kit"));
        SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + kit.GetMachine() + kit.GetScript());
        kit.WriteKit();
        kit.WriteMachine();
        // Most machines have something in the way.
        const std::string option = seed % 4 == 0 ? "" : "--allow-conflicts ";
        const Json plan =
            Json::parse(Run("SETUP plan install --json --kit KIT " + option).out, nullptr, false);
        ASSERT_TRUE(plan.is_object());
        Follow(plan);
        const std::vector<std::string> told = Look();
        RandomKit::Wipe();
        kit.WriteMachine();
        const Outcome install = Run("SETUP install --no-check --quiet --kit KIT " + option);
        EXPECT_EQ(plan.value("exitCode", -1), install.exitCode) << plan << "\n" << install.err;
        EXPECT_THAT(KTEST::Changes(told, Look()), IsEmpty()) << plan << "\n" << install.err;
        done += install.exitCode == 0 ? 1 : 0;
        CleanUp(kit.HasServices());
        fs::remove_all(tree.Path("kit"));
    }
    // Kits that all fail early would compare little.
    EXPECT_GE(done * 5, count) << "of " << count << " kits were installed";
}

} // namespace
