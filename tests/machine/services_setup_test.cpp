// SPDX-License-Identifier: MIT
//
// What ins-setup tells of services.
#include "ServicesRig.h"

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using namespace KTEST;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class ServicesSetupTest : public ServicesTest {
  protected:
    ServicesSetupTest() {
        tree.Write(
            "kit/product.ini",
            "[product]\nname=Test\nserviceName=inspp-test\niniFile=t.ini\nversion=1.0\n"
            "buildNumber=1\n"
        );
        tree.Write("kit/program", "#!/bin/sh\nexec sleep 1000\n", 0755);
        // Of a test whose run failed: its product path is gone, and the next install would go there.
        fs::remove_all("/var/lib/ins++");
        tree.Write(
            "kit/install.ini",
            "[install]\n"
            "defaultPath.$os$=" +
                tree.Path("product") +
                "\n"
                "directory=create,$pathTargetBin$\n"
                "directory=create,$pathTargetConfig$\n"
                "directory=create,/etc/$serviceName$\n"
                "profile=put,$pathTargetConfig$$iniFile$,General,A,1\n"
                "file=copy,program,$pathSource$,$pathTargetBin$\n"
                "file=symlink,program,$pathTargetBin$,/etc/$serviceName$,$serviceName$\n"
                "service=install,$serviceName$\n"
                "service=start,$serviceName$\n"
                "[remove]\n"
                "service=remove,$serviceName$\n"
                "file=delete,$serviceName$,/etc/$serviceName$\n"
        );
    }

    /// A newer program, and a script that removes the service before it is replaced and starts it.
    void GivenUpgrade() const {
        tree.Write("kit/program", "#!/bin/sh\nexec sleep 2000\n", 0755);
        std::string script = tree.Read("kit/install.ini");
        tree.Write(
            "kit/install.ini",
            script.insert(script.find("file=copy,program"), "service=remove,$serviceName$\n")
        );
    }
    /// What the service runs, as in "sleep 1000 ".
    static std::string RunningProgram() {
        return Output("tr '\\0' ' ' < /proc/" + Property("MainPID") + "/cmdline");
    }
    /// What the program prints, and its exit code in a last line.
    std::string Setup(const std::string& arguments) const {
        const std::string program =
            fs::canonical("/proc/self/exe").parent_path().string() + "/ins-setup";
        return Output(program + ' ' + arguments + " --kit " + tree.Path("kit") + "; echo exit $?");
    }
};

TEST_F(ServicesSetupTest, InstallsStartsAndRemovesTheServiceOfTheLink) {
    EXPECT_THAT(Setup("install"), AllOf(HasSubstr("exit 0"), Not(HasSubstr("next boot"))));
    EXPECT_EQ(StateOfService(), "active running");
    EXPECT_THAT(Setup("remove"), HasSubstr("exit 0"));
    EXPECT_EQ(Property("LoadState"), "not-found");
}

TEST_F(ServicesSetupTest, TellsWhyAServiceDidNotStart) {
    tree.Write("kit/program", "#!/bin/sh\nexit 3\n", 0755);
    const std::string told = Setup("install");
    EXPECT_THAT(told, HasSubstr("\nError 182: inspp-test.service: it "));
    EXPECT_THAT(told, HasSubstr("exit status 3"));
    EXPECT_THAT(told, HasSubstr("exit 69"));
}

TEST_F(ServicesSetupTest, TellsWhyAServiceWasNotRegistered) {
    GivenForeignUnit("Type=nonsense\nExecStart=bin/relative");
    EXPECT_THAT(
        Setup("install"),
        HasSubstr("\nError 182: inspp-test.service: systemd cannot use the unit file")
    );
}

TEST_F(ServicesSetupTest, TellsWhatIsLeftForTheNextBootOfAnImage) {
    HideSystemd();
    EXPECT_THAT(
        Setup("install"),
        AllOf(HasSubstr("the script has services, and systemd does not run"), HasSubstr("exit 69"))
    );
    EXPECT_THAT(
        Setup("install --offline-services"),
        AllOf(
            HasSubstr("\nsystemd does not run here, so this is left for the next boot: start "
                      "inspp-test.\n"),
            HasSubstr("exit 0")
        )
    );
    EXPECT_TRUE(fs::is_symlink(enablingLink));
}

TEST_F(ServicesSetupTest, RemovesFromAnImageWhenItIsToldTo) {
    std::string script = tree.Read("kit/install.ini");
    tree.Write(
        "kit/install.ini",
        script.insert(script.find("service=remove"), "service=stop,$serviceName$\n")
    );
    HideSystemd();
    ASSERT_THAT(Setup("install --offline-services"), HasSubstr("exit 0"));
    EXPECT_THAT(
        Setup("remove"),
        AllOf(
            HasSubstr("systemd does not run here. Nothing was changed. --offline-services leaves"),
            HasSubstr("exit 69")
        )
    );
    EXPECT_FALSE(fs::exists("/var/lib/ins++/inspp-test/state"));
    EXPECT_TRUE(fs::is_symlink(enablingLink));
    EXPECT_THAT(
        Setup("remove --offline-services"), AllOf(HasSubstr("is removed"), HasSubstr("exit 0"))
    );
    EXPECT_FALSE(fs::is_symlink(enablingLink));
    EXPECT_FALSE(fs::exists(unitPath));
}

// The administrator's word

TEST_F(ServicesSetupTest, AnUpgradeLeavesStoppedWhatWasStoppedByHand) {
    ASSERT_THAT(Setup("install"), HasSubstr("exit 0"));
    Output("systemctl stop inspp-test");
    GivenUpgrade();
    EXPECT_THAT(
        Setup("install"),
        AllOf(
            HasSubstr("\nThe service inspp-test was stopped before, and stays so."),
            HasSubstr("exit 0")
        )
    );
    EXPECT_EQ(StateOfService(), "inactive dead");
    EXPECT_THAT(Setup("install --reinstall --start-services"), HasSubstr("exit 0"));
    EXPECT_EQ(RunningProgram(), "sleep 2000 ");
}

TEST_F(ServicesSetupTest, AnUpgradeLeavesDisabledWhatWasDisabledByHand) {
    ASSERT_THAT(Setup("install"), HasSubstr("exit 0"));
    Output("systemctl disable inspp-test 2>&1");
    ASSERT_FALSE(fs::is_symlink(enablingLink));
    GivenUpgrade();
    EXPECT_THAT(
        Setup("install"),
        AllOf(
            HasSubstr("\nThe service inspp-test was disabled before, and stays so."),
            HasSubstr("exit 0")
        )
    );
    EXPECT_FALSE(fs::is_symlink(enablingLink));
    EXPECT_EQ(RunningProgram(), "sleep 2000 ");
}

TEST_F(ServicesSetupTest, AnUpgradeLeavesMaskedWhatWasMaskedByHand) {
    ASSERT_THAT(Setup("install"), HasSubstr("exit 0"));
    Output("systemctl stop inspp-test");
    fs::remove(unitPath);
    fs::create_symlink("/dev/null", unitPath);
    GivenUpgrade();
    EXPECT_THAT(
        Setup("install"), HasSubstr("\nThe service inspp-test was masked before, and stays so.")
    );
    EXPECT_EQ(fs::read_symlink(unitPath), "/dev/null");
}

TEST_F(ServicesSetupTest, AServiceThatUsesWhatWasReplacedIsNamedUntilItIsStartedAgain) {
    tree.Write("kit/program", "#!/bin/sh\nexec " + tree.Path("product") + "/worker 1000\n", 0755);
    fs::copy_file("/bin/sleep", tree.Path("kit/worker"));
    std::string script = tree.Read("kit/install.ini");
    tree.Write(
        "kit/install.ini",
        script.insert(
            script.find("file=copy,program"), "file=copy,worker,$pathSource$,$pathTarget$\n"
        )
    );
    ASSERT_THAT(Setup("install"), HasSubstr("exit 0"));
    Output("echo more >> " + tree.Path("kit/worker"));
    const auto isNamed = HasSubstr(
        "\nThe service inspp-test still uses the former " + tree.Path("product") +
        "/worker; systemctl restart inspp-test.\n"
    );
    EXPECT_THAT(Setup("install"), AllOf(isNamed, HasSubstr("exit 0")));
    EXPECT_THAT(Setup("status"), isNamed);
    Output("systemctl restart inspp-test");
    EXPECT_THAT(Setup("status"), Not(HasSubstr("still uses")));
}

// Undoing a run

TEST_F(ServicesSetupTest, RestoringAnUpgradeRunsTheFormerProgramAgain) {
    ASSERT_THAT(Setup("install"), HasSubstr("exit 0"));
    GivenUpgrade();
    ASSERT_THAT(Setup("install --backup"), HasSubstr("exit 0"));
    ASSERT_EQ(RunningProgram(), "sleep 2000 ");
    const std::string told = Setup("restore");
    EXPECT_THAT(
        told,
        AllOf(
            HasSubstr("Test is as it was before."),
            HasSubstr("Started again with what was put back: inspp-test."),
            HasSubstr("exit 0")
        )
    );
    EXPECT_EQ(StateOfService(), "active running");
    EXPECT_EQ(RunningProgram(), "sleep 1000 ");
}

TEST_F(ServicesSetupTest, RestoringStopsAndDisablesWhatWasStoppedAndDisabled) {
    ASSERT_THAT(Setup("install"), HasSubstr("exit 0"));
    ASSERT_EQ(
        Output("systemctl --quiet disable --now inspp-test; systemctl is-enabled inspp-test"),
        "disabled"
    );
    ASSERT_THAT(Setup("install --backup --reinstall --start-services"), HasSubstr("exit 0"));
    ASSERT_EQ(StateOfService(), "active running");
    ASSERT_TRUE(fs::is_symlink(enablingLink));
    EXPECT_THAT(
        Setup("restore"),
        AllOf(HasSubstr("Stopped, because it did not run before: inspp-test."), HasSubstr("exit 0"))
    );
    EXPECT_EQ(StateOfService(), "inactive dead");
    EXPECT_EQ(Output("systemctl is-enabled inspp-test"), "disabled");
}

TEST_F(ServicesSetupTest, RestoringARemovalBringsTheServiceBack) {
    ASSERT_THAT(Setup("install"), HasSubstr("exit 0"));
    ASSERT_THAT(Setup("remove --backup"), HasSubstr("exit 0"));
    ASSERT_EQ(Property("LoadState"), "not-found");
    EXPECT_THAT(Setup("restore"), HasSubstr("exit 0"));
    EXPECT_EQ(StateOfService(), "active running");
    EXPECT_EQ(Output("systemctl is-enabled inspp-test"), "enabled");
}

TEST_F(ServicesSetupTest, AServiceThatDoesNotStartIsRolledBack) {
    ASSERT_THAT(Setup("install"), HasSubstr("exit 0"));
    GivenUpgrade();
    tree.Write("kit/program", "#!/bin/sh\nexit 3\n", 0755);
    EXPECT_THAT(
        Setup("install --rollback"),
        AllOf(HasSubstr("Everything was put back: Test is as it was before."), HasSubstr("exit 69"))
    );
    EXPECT_EQ(RunningProgram(), "sleep 1000 ");
}

TEST_F(ServicesSetupTest, ARollbackLeavesARunningServiceAloneThatNothingWasDoneTo) {
    ASSERT_THAT(Setup("install"), HasSubstr("exit 0"));
    const std::string before = Property("MainPID");
    std::string script = tree.Read("kit/install.ini");
    tree.Write(
        "kit/install.ini",
        script.insert(
            script.find("directory=create"),
            "process=start,true\nfile=copy,none,$pathSource$,/srv\n"
        )
    );
    EXPECT_THAT(
        Setup("install --no-check --rollback"),
        AllOf(HasSubstr("\n0 put back, 0 that"), HasSubstr("exit 1"))
    );
    EXPECT_EQ(Property("MainPID"), before);
}

} // namespace
