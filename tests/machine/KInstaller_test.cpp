// SPDX-License-Identifier: MIT
//
// Whole lives of a product, with its record in /etc.
#include "../support/ErrorProbe.h"
#include "MachineRig.h"

#include <sup++/KUtil.h>
#include <sup++/SvcData.h>

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <filesystem>

namespace {

using KTEST::ErrorOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class KInstallerMachineTest : public KTEST::MachineTest {
  protected:
    KInstallerMachineTest() { GivenProduct("2.1", 37); }

    std::string TargetVersion() const {
        std::array<char, 64> text{};
        const unsigned status = SvcGetCustomKey(0, 0, "targetVerInfo", text.size(), text.data());
        return status == 0 ? text.data() : "no such key";
    }
    std::string Installed(const char* version, unsigned build) const {
        return std::string(version) + ' ' + std::to_string(build) + ' ' + tree.Path("p");
    }
};

TEST_F(KInstallerMachineTest, InitializeAdoptsTheInstalledProduct) {
    GivenRecord("[installControl]\ninstalledVersion=2.1\nbuildNumber=37\n");
    KSUP::KUtil::SetPathMap(57, "/elsewhere/");
    GivenScript("");
    Initialize();
    EXPECT_TRUE(installer->IsProductInstalled());
    EXPECT_EQ(TargetVersion(), "2.1-37");
    EXPECT_EQ(tree.Path("p/"), KSUP::KUtil::GetPathMap(57).c_str());
    EXPECT_STREQ(installer->ExpandMacros("$targetVerInfo$").c_str(), "2.1-37");
    EXPECT_STREQ(installer->ExpandMacros("prog$binext$").c_str(), "prog");
    EXPECT_EQ(tree.Path("p"), installer->GetInstalledProductPath().c_str());
}

TEST_F(KInstallerMachineTest, InitializeWithoutAProductLeavesThePathTable) {
    KSUP::KUtil::SetPathMap(57, "/elsewhere/");
    GivenScript("");
    Initialize();
    EXPECT_FALSE(installer->IsProductInstalled());
    EXPECT_STREQ(KSUP::KUtil::GetPathMap(57).c_str(), "/elsewhere/");
}

TEST_F(KInstallerMachineTest, ALinkToNowhereIsStillAProduct) {
    GivenLink();
    GivenScript("");
    Initialize();
    EXPECT_TRUE(installer->IsProductInstalled());
    EXPECT_EQ(TargetVersion(), "unknown-0");
}

TEST_F(KInstallerMachineTest, ACleanInstallWritesVersionAndBuildNumberOfTheProductData) {
    GivenProductScript();
    Initialize();
    installer->StartInstall(tree.Path("p"));
    EXPECT_EQ(CodeOfEnd(), 0U) << failure;
    EXPECT_EQ(installer->GetMode(), KINS::ModeInstall);
    EXPECT_EQ(Installed("2.1", 37), Product());
    EXPECT_EQ(installer->GetMaxCount(), installer->GetCompletedCount());
}

TEST_F(KInstallerMachineTest, OverAnInstalledProductStartInstallIsAnUpgrade) {
    GivenProductScript();
    Initialize();
    installer->StartInstall(tree.Path("p"));
    ASSERT_EQ(CodeOfEnd(), 0U) << failure;
    Renew();
    GivenProduct("2.2", 38);
    Initialize();
    EXPECT_EQ(TargetVersion(), "2.1-37");
    installer->StartInstall(tree.Path("p"));
    EXPECT_EQ(CodeOfEnd(), 0U) << failure;
    EXPECT_EQ(installer->GetMode(), KINS::ModeUpgrade);
    EXPECT_EQ(Installed("2.2", 38), Product());
}

TEST_F(KInstallerMachineTest, AutoInstallGoesToTheDefaultPathAndThenToTheInstalledOne) {
    GivenProductScript();
    Initialize();
    installer->AutoInstall();
    EXPECT_EQ(installer->GetMode(), KINS::ModeInstall);
    EXPECT_EQ(Installed("2.1", 37), Product());
    Renew();
    tree.Remove("p/lin/x86/svc");
    tree.Write(
        "install.ini",
        "[install]\ndefaultPath.$os$=/nowhere\nfile=copy,svc,$pathSource$,$pathTargetLinX86$\n"
    );
    Initialize();
    installer->AutoInstall();
    EXPECT_EQ(installer->GetMode(), KINS::ModeUpgrade);
    EXPECT_TRUE(tree.Exists("p/lin/x86/svc"));
}

TEST_F(KInstallerMachineTest, AutoUninstallRemovesTheProductAndWritesNoRecord) {
    GivenProductScript();
    Initialize();
    installer->AutoInstall();
    Renew();
    Initialize();
    installer->AutoUninstall();
    EXPECT_EQ(installer->GetMode(), KINS::ModeUninstall);
    EXPECT_EQ(Product(), "none");
    EXPECT_FALSE(tree.Exists("p"));
    EXPECT_FALSE(std::filesystem::exists(linkDirectory));
}

TEST_F(KInstallerMachineTest, ARemovalThatKeepsLinkAndRecordLeavesThemUnwritten) {
    GivenRecord("[installControl]\ninstalledVersion=1.0\nbuildNumber=1\n");
    GivenScript("[remove]\ndirectory=create,@T@/made\n");
    Initialize();
    installer->AutoUninstall();
    EXPECT_TRUE(tree.Exists("made"));
    EXPECT_EQ(
        tree.Read("p/config/dps.ini"), "[installControl]\ninstalledVersion=1.0\nbuildNumber=1\n"
    );
}

TEST_F(KInstallerMachineTest, AFailingRuleLeavesNoRecordAndAutoInstallThrowsItsError) {
    GivenRecord("");
    GivenScript("[install]\nfile=copy,none,@T@/kit,@T@\n");
    Initialize();
    const KSUP::KError error = ErrorOf([&] { installer->AutoInstall(); });
    EXPECT_EQ(error.GetCode(), static_cast<unsigned>(ENOENT));
    EXPECT_THAT(error.GetInfo().GetString().c_str(), HasSubstr(tree.Path("kit/none")));
    EXPECT_EQ(tree.Read("p/config/dps.ini"), "");
}

TEST_F(KInstallerMachineTest, ACancelledInstallLeavesNoRecord) {
    GivenRecord("");
    GivenProductScript();
    tree.Write("p/config/dps.ini", "");
    statuses.At(1, [&] { installer->Stop(); });
    Initialize();
    installer->StartInstall(tree.Path("p"));
    EXPECT_EQ(CodeOfEnd(), 66U);
    EXPECT_EQ(tree.Read("p/config/dps.ini"), "");
}

TEST_F(KInstallerMachineTest, AStopInTheLastRuleLeavesNoRecordEither) {
    GivenRecord("");
    GivenScript("[install]\ndirectory=create,@T@/made\n");
    statuses.At(1, [&] { installer->Stop(); });
    Initialize();
    installer->StartInstall(tree.Path("p"));
    EXPECT_EQ(CodeOfEnd(), 66U);
    EXPECT_TRUE(tree.Exists("made"));
    EXPECT_EQ(tree.Read("p/config/dps.ini"), "");
}

TEST_F(KInstallerMachineTest, TheRecordComesAfterTheRulesAndIsExpandedThen) {
    // The rule itself lays the record file down: what it holds is kept beside the record.
    GivenProductScript();
    Initialize();
    installer->StartInstall(tree.Path("p"));
    ASSERT_EQ(CodeOfEnd(), 0U) << failure;
    EXPECT_EQ(
        tree.Read("p/config/dps.ini"),
        "[General]\nLevel=1\n[installControl]\ninstalledVersion=2.1\nbuildNumber=37\n"
    );
}

TEST_F(KInstallerMachineTest, ModesForCallersWriteTheRecordToo) {
    for (const unsigned mode : {2U, 4U, 5U}) {
        GivenRecord("");
        GivenScript("[install]\n");
        Renew();
        Initialize();
        installer->Start(tree.Path("p"), static_cast<KINS::MODE>(mode));
        EXPECT_EQ(CodeOfEnd(), 0U) << failure;
        EXPECT_EQ(Installed("2.1", 37), Product()) << mode;
    }
}

} // namespace
