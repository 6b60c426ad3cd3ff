// SPDX-License-Identifier: MIT
//
// The installed-product record where it really lies.
#include "../support/ErrorProbe.h"
#include "MachineRig.h"

#include <ins/unx/lin/KInstallPathManager.h>

#include <gmock/gmock.h>

#include <filesystem>

namespace {

using KINS::KInstallPathManager;
using KSUP::KString;
using KTEST::ErrorOf;
using KTEST::Place;
using ::testing::StartsWith;

class KInstallPathManagerMachineTest : public KTEST::MachineTest {
  protected:
    std::string Read() const {
        KString path;
        KString version;
        unsigned buildNumber = 0;
        manager.GetInstalledProductInformation(path, version, buildNumber);
        return std::string(version.c_str()) + ' ' + std::to_string(buildNumber) + ' ' +
               path.c_str();
    }
    void Put() const { manager.PutInstalledProductInformation("1.2.3", 7); }

    KInstallPathManager manager{installer.get()};
};

TEST_F(KInstallPathManagerMachineTest, WithoutALinkBothAreError64) {
    EXPECT_THAT(
        Place(ErrorOf([&] { Read(); })),
        StartsWith("48 64.0 ins/unx/lin/KInstallPathManager:94 GetInstalledProductInformation")
    );
    EXPECT_THAT(
        Place(ErrorOf([&] { Put(); })),
        StartsWith("48 64.0 ins/unx/lin/KInstallPathManager:57 PutInstalledProductInformation")
    );
}

TEST_F(KInstallPathManagerMachineTest, ARelativeLinkIsError16ForBoth) {
    std::filesystem::create_directories(linkDirectory);
    std::filesystem::create_symlink("../passwd", link);
    EXPECT_THAT(
        Place(ErrorOf([&] { Read(); })),
        StartsWith("48 16.0 ins/unx/lin/KInstallPathManager:101 GetInstalledProductInformation")
    );
    EXPECT_THAT(
        Place(ErrorOf([&] { Put(); })),
        StartsWith("48 16.0 ins/unx/lin/KInstallPathManager:64 PutInstalledProductInformation")
    );
}

TEST_F(KInstallPathManagerMachineTest, ADirectoryInPlaceOfTheLinkIsError64) {
    std::filesystem::create_directories(link);
    EXPECT_EQ(ErrorOf([&] { Read(); }).GetCode(), 64U);
    EXPECT_EQ(ErrorOf([&] { Put(); }).GetCode(), 64U);
}

TEST_F(KInstallPathManagerMachineTest, TheProductIsThreeLevelsAboveTheLinksTarget) {
    GivenLink();
    EXPECT_EQ("unknown 0 " + tree.Path("p"), Read());
}

TEST_F(KInstallPathManagerMachineTest, WhatIsWrittenReadsBack) {
    GivenRecord("");
    Put();
    EXPECT_EQ("1.2.3 7 " + tree.Path("p"), Read());
    EXPECT_EQ(
        tree.Read("p/config/dps.ini"), "[installControl]\ninstalledVersion=1.2.3\nbuildNumber=7\n"
    );
}

TEST_F(KInstallPathManagerMachineTest, TheRecordFileKeepsItsModeAndOwner) {
    GivenRecord("");
    tree.SetMode("p/config/dps.ini", 0640);
    tree.SetOwner("p/config/dps.ini", 1234, 4321);
    Put();
    EXPECT_EQ(tree.Mode("p/config/dps.ini"), 0640U);
    EXPECT_EQ(tree.Status("p/config/dps.ini").st_uid, 1234U);
    EXPECT_EQ(tree.Status("p/config/dps.ini").st_gid, 4321U);
}

TEST_F(KInstallPathManagerMachineTest, NothingIsLeftBesideTheRecordFile) {
    GivenRecord("");
    Put();
    EXPECT_EQ(tree.List("p/config").size(), 1U);
}

} // namespace
