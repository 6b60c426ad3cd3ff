// SPDX-License-Identifier: MIT
#include <setup/plan/SystemPlaces.h>

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using KSETUP::FindPackageManagerOf;
using KSETUP::IsSharedNameInEtc;
using KSETUP::IsSystemDirectory;

TEST(SystemPlacesTest, EtcIsTheSystemsSaveTheServicesOwnDirectory) {
    EXPECT_TRUE(IsSystemDirectory("/etc/ssh", "dps"));
    EXPECT_TRUE(IsSystemDirectory("/etc/dpsx", "dps"));
    EXPECT_FALSE(IsSystemDirectory("/etc/dps", "dps"));
    EXPECT_FALSE(IsSystemDirectory("/etc/dps/more", "dps"));
    EXPECT_TRUE(IsSystemDirectory("/etc/dps", ""));
}

TEST(SystemPlacesTest, NamesThatManyShareAreKnown) {
    EXPECT_TRUE(IsSharedNameInEtc("default"));
    EXPECT_TRUE(IsSharedNameInEtc("ssh"));
    EXPECT_FALSE(IsSharedNameInEtc("dps"));
}

TEST(SystemPlacesTest, APackageOwnsItsDirectories) {
    if (!std::filesystem::exists("/usr/bin/dpkg-query")) {
        GTEST_SKIP() << "there is no dpkg to ask";
    }
    EXPECT_EQ(FindPackageManagerOf("/usr/share/perl5"), "dpkg");
    EXPECT_EQ(FindPackageManagerOf("/nowhere/at/all"), "");
}

} // namespace
