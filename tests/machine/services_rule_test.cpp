// SPDX-License-Identifier: MIT
//
// Service rules in whole runs, against a real systemd.
#include "MachineRig.h"
#include "ServicesRig.h"

#include <sup++/SvcService.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using namespace KTEST;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

/// The rig of the service, beside that of the installer.
struct OneService : ServicesTest {
    OneService() = default;
    ~OneService() override { CleanUp(); }
    void TestBody() override {}
    using ServicesTest::GivenForeignUnit;
    using ServicesTest::HideSystemd;
    using ServicesTest::StopBus;
};

class ServicesRuleTest : public MachineTest {
  protected:
    ServicesRuleTest() {
        GivenProduct("2.1", 37);
        tree.Write(
            "p/program",
            "#!/bin/sh\nprintf '%s\\n' \"$*\" >" + tree.Path("told") + "\nexec sleep 1000\n",
            0755
        );
    }

    /// Runs an install whose script has these service rules behind those that lay the product.
    unsigned Install(const std::string& rules) {
        Renew();
        GivenProductScript(rules);
        Initialize();
        installer->StartInstall(tree.Path("p"));
        return CodeOfEnd();
    }
    /// Runs a removal whose script has these service rules.
    unsigned Remove(const std::string& rules) {
        Renew();
        GivenScript("[remove]\n" + rules);
        Initialize();
        installer->StartUninstall(tree.Path("p"));
        return CodeOfEnd();
    }

    const std::string create =
        "service=install,inspp-test,The test,@T@/p/program,-n \"our server\" 50%\n";
    const std::string start = "service=start,inspp-test\n";
    OneService one;
};

TEST_F(ServicesRuleTest, AnInstallRegistersAndStartsAService) {
    EXPECT_EQ(Install(create + start), 0U);
    EXPECT_EQ(StateOfService(), "active running");
    EXPECT_EQ(Property("UnitFileState"), "enabled");
    EXPECT_EQ(Property("Description"), "The test");
    Await([this] { return tree.Exists("told") && !tree.Read("told").empty(); });
    EXPECT_EQ(tree.Read("told"), "-n our server 50%\n");
    EXPECT_THAT(
        LogLines(),
        Contains(
            "KINS::KServiceRule: Installing service inspp-test The test " + tree.Path("p/program") +
            " -n \"our server\" 50%"
        )
    );
}

TEST_F(ServicesRuleTest, AnUpgradeOfARunningServiceRunsTheNewOne) {
    ASSERT_EQ(Install(create + start), 0U);
    const std::string process = Property("MainPID");
    ASSERT_EQ(Install("service=stop,inspp-test\n" + create + start), 0U);
    EXPECT_EQ(StateOfService(), "active running");
    EXPECT_NE(Property("MainPID"), process);
}

TEST_F(ServicesRuleTest, ARemovalLeavesNoService) {
    ASSERT_EQ(Install(create + start), 0U);
    EXPECT_EQ(Remove("service=remove,inspp-test\n"), 0U);
    EXPECT_EQ(StateOfService(), "inactive dead");
    EXPECT_FALSE(fs::exists(unitPath));
    EXPECT_FALSE(fs::is_symlink(enablingLink));
    EXPECT_THAT(LogLines(), Not(Contains(HasSubstr("Failed"))));
}

TEST_F(ServicesRuleTest, RemovingAServiceThatDoesNotExistLogsBothFailuresAndGoesOn) {
    EXPECT_EQ(Remove("service=remove,inspp-test\nfile=delete,program,@T@/p\n"), 0U);
    EXPECT_THAT(
        LogLines(),
        AllOf(
            Contains("KINS::KServiceRule: Failed to stop service 180 (0xb4)"),
            Contains("KINS::KServiceRule: Failed to delete service 180 (0xb4)")
        )
    );
    EXPECT_FALSE(tree.Exists("p/program"));
}

TEST_F(ServicesRuleTest, AServiceThatEndsAtOnceEndsTheInstallWithoutARecord) {
    tree.Write("p/program", "#!/bin/sh\nexit 1\n", 0755);
    EXPECT_EQ(Install(create + start), 182U);
    EXPECT_EQ(failure, "") << "a start has no information of its own";
    EXPECT_THAT(trace.Texts(24), Contains(HasSubstr("exit status 1")));
    EXPECT_EQ(Product(), "none");
}

TEST_F(ServicesRuleTest, AForeignUnitEndsTheInstall) {
    OneService::GivenForeignUnit("ExecStart=/bin/sleep 1000");
    EXPECT_EQ(Install(create + start), 181U);
    EXPECT_EQ(failure, "Failed to install service");
    EXPECT_THAT(
        LogLines(), Contains("KINS::KServiceRule: Failed to create service  ('181 (0xb5)')")
    );
    EXPECT_EQ(Product(), "none");
}

TEST_F(ServicesRuleTest, AnInstallWithoutTheBusFails) {
    OneService::StopBus();
    EXPECT_EQ(Install(create + start), 185U);
    EXPECT_FALSE(fs::exists(unitPath));
}

TEST_F(ServicesRuleTest, AnInstallInAnImageRegistersTheServiceForItsFirstBoot) {
    OneService::HideSystemd();
    ASSERT_EQ(SvcSetOfflineServices(0, 1), 0U);
    EXPECT_EQ(Install(create + start), 0U);
    EXPECT_TRUE(fs::is_symlink(enablingLink));
}

TEST_F(ServicesRuleTest, AnInstallInAnImageThatIsNotToldSoFailsAtTheStart) {
    OneService::HideSystemd();
    EXPECT_EQ(Install(create + start), 184U);
    EXPECT_TRUE(fs::is_symlink(enablingLink)) << "the service itself is registered";
}

} // namespace
