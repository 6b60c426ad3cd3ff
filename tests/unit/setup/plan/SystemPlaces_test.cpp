// SPDX-License-Identifier: MIT
#include <setup/plan/SystemPlaces.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

using KSETUP::FindPackageManagers;
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
    using Managers = std::map<std::string, std::string>;
    EXPECT_EQ(
        FindPackageManagers({"/nowhere/at/all", "/usr/share/perl5", "/usr/share/perl"}),
        (Managers{{"/usr/share/perl5", "dpkg"}, {"/usr/share/perl", "dpkg"}})
    );
    EXPECT_EQ(FindPackageManagers({"/nowhere/at/all"}), Managers{});
    EXPECT_EQ(FindPackageManagers({}), Managers{});
}

TEST(SystemPlacesTest, MoreThanOneQuestionMayAskForAreAsked) {
    if (!std::filesystem::exists("/usr/bin/dpkg-query")) {
        GTEST_SKIP() << "there is no dpkg to ask";
    }
    std::vector<std::string> paths;
    for (int number = 0; number < 500; ++number) {
        paths.push_back("/nowhere/" + std::to_string(number));
    }
    paths.emplace_back("/usr/share/perl5");
    EXPECT_TRUE(FindPackageManagers(paths).contains("/usr/share/perl5"));
}

} // namespace
