// SPDX-License-Identifier: MIT
//
// Where systemd does not run: a root directory of the test's own without /run/systemd/system.
#include "../../../support/ServiceErrors.h"
#include "../../../support/TemporaryTree.h"
#include "../../sup++/Common.h"

#include <sys/services/KServiceControl.h>

namespace KTEST {
namespace {

using KSYS::KServiceControl;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* unitPath = "etc/systemd/system/dps.service";
constexpr const char* foreignText = "[Service]\nExecStart=/b\n[Install]\nWantedBy=x.target\n";

class KServiceControlTest : public testing::Test {
  protected:
    KServiceControl Service(const std::string& name = "dps") const {
        return {name, tree.Path(), KServiceControl::Limits()};
    }
    void Create(const std::string& program, const std::string& arguments = "") const {
        Service().Create("DPS", program, arguments);
    }
    std::vector<std::string> Files() const {
        std::vector<std::string> files;
        for (const std::string& line : tree.List()) {
            if (!line.starts_with('d')) {
                files.push_back(line);
            }
        }
        return files;
    }

    TemporaryTree tree;
};

const char* const enabled =
    "l etc/systemd/system/multi-user.target.wants/dps.service -> /etc/systemd/system/dps.service";

TEST_F(KServiceControlTest, CreateLaysTheFileAndTheLinkThatEnablesIt) {
    Create("/opt/dpsd", "-v");
    EXPECT_THAT(Files(), ElementsAre(StartsWith("f 0644 etc/systemd/system/dps.service"), enabled));
    EXPECT_THAT(tree.Read(unitPath), HasSubstr("\nDescription=DPS\n"));
    EXPECT_THAT(tree.Read(unitPath), HasSubstr("\nExecStart=/opt/dpsd -v\n"));
}

TEST_F(KServiceControlTest, CreateAgainReplacesOneOfOurs) {
    Create("/opt/dpsd");
    Create("/opt/dpsd2");
    EXPECT_THAT(tree.Read(unitPath), HasSubstr("\nExecStart=/opt/dpsd2\n"));
    EXPECT_THAT(Files(), testing::SizeIs(2));
}

TEST_F(KServiceControlTest, CreateRefusesAForeignUnitWhereverItLies) {
    for (const char* path : {unitPath, "usr/lib/systemd/system/dps.service"}) {
        tree.Write(path, foreignText);
        const std::vector<std::string> before = tree.List();
        EXPECT_EQ(StatusOf([&] { Create("/opt/dpsd"); }), 181U);
        EXPECT_EQ(tree.List(), before);
        tree.Remove(path);
    }
}

TEST_F(KServiceControlTest, WithoutAProgramAUnitThatIsThereIsAdopted) {
    tree.Write(unitPath, foreignText);
    Create("");
    EXPECT_EQ(tree.Read(unitPath), foreignText);
    EXPECT_THAT(Files(), Contains(HasSubstr("x.target.wants/dps.service")));
}

TEST_F(KServiceControlTest, WithoutAProgramOneOfOursStaysAsItIs) {
    Create("/opt/dpsd", "-v");
    tree.Link("etc/dps/dps", "/opt/other");
    Create("");
    EXPECT_THAT(tree.Read(unitPath), HasSubstr("\nExecStart=/opt/dpsd -v\n"));
}

TEST_F(KServiceControlTest, WithoutAProgramAndAUnitTheServiceLinkIsTheProgram) {
    tree.Link("etc/dps/dps", "/opt/dps/lin/x86_64/dpsd");
    Create("", "-v");
    EXPECT_THAT(tree.Read(unitPath), HasSubstr("\nExecStart=/etc/dps/dps -v\n"));
    EXPECT_THAT(Files(), Contains(enabled));
}

TEST_F(KServiceControlTest, WithNeitherNothingIsMade) {
    EXPECT_EQ(StatusOf([&] { Create(""); }), 180U);
    EXPECT_THAT(tree.List(), IsEmpty());
}

TEST_F(KServiceControlTest, ArgumentsThatCannotBeLeaveNothing) {
    EXPECT_EQ(StatusOf([&] { Create("opt/dpsd"); }), 36U);
    EXPECT_EQ(StatusOf([&] { Create("/opt/dpsd", "'"); }), 36U);
    EXPECT_THAT(tree.List(), IsEmpty());
}

TEST_F(KServiceControlTest, DeleteTakesAwayWhatCreateLaid) {
    tree.Directory("etc/systemd/system");
    const std::vector<std::string> before = tree.List();
    Create("/opt/dpsd");
    Service().Delete();
    EXPECT_EQ(tree.List(), before);
}

TEST_F(KServiceControlTest, DeleteOfAForeignUnitDisablesItAndLeavesIt) {
    tree.Write(unitPath, foreignText);
    Create("");
    Service().Delete();
    EXPECT_THAT(Files(), ElementsAre(StartsWith("f 0644 etc/systemd/system/dps.service")));
}

TEST_F(KServiceControlTest, DeleteOfAnUnknownServiceIsStatus180) {
    EXPECT_EQ(StatusOf([&] { Service().Delete(); }), 180U);
}

TEST_F(KServiceControlTest, NothingCanBeStartedStoppedOrAsked) {
    Create("/opt/dpsd");
    const KSYS::KServiceError error = ServiceErrorOf([&] { Service().Start(); });
    EXPECT_EQ(error.GetStatus(), 184U);
    EXPECT_STREQ(
        error.what(),
        "dps.service: the service cannot be started: systemd does not run here (there is no "
        "/run/systemd/system)"
    );
    EXPECT_EQ(StatusOf([&] { Service().Stop(); }), 184U);
    EXPECT_EQ(StatusOf([&] { Service().GetState(); }), 184U);
}

TEST_F(KServiceControlTest, AServiceWithoutAFileIsToldFromOneWithIt) {
    EXPECT_EQ(StatusOf([&] { Service().RequireFile(); }), 180U);
    tree.Write("lib/systemd/system/dps.service", foreignText);
    EXPECT_EQ(StatusOf([&] { Service().RequireFile(); }), 0U);
}

TEST_F(KServiceControlTest, SystemdRunsWhereItsSignIs) {
    EXPECT_FALSE(Service().IsSystemdRunning());
    tree.Directory("run/systemd/system");
    EXPECT_TRUE(Service().IsSystemdRunning());
}

TEST_F(KServiceControlTest, WaitsAreLimited) {
    const KServiceControl::Limits limits;
    EXPECT_EQ(limits.start, std::chrono::seconds(120));
    EXPECT_EQ(limits.stop, std::chrono::seconds(120));
}

} // namespace
} // namespace KTEST
