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

} // namespace
