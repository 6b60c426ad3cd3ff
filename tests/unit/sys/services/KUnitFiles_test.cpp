// SPDX-License-Identifier: MIT
//
// On a root directory of the test's own. That systemd's own program lays the same links is tested in
// tests/machine.
#include "../../../support/NameOfRow.h"
#include "../../../support/ServiceErrors.h"
#include "../../../support/TemporaryTree.h"
#include "../../sup++/Common.h"
#include "../WriteRecording.h"

#include <cerrno>

#include <sys/services/KUnitFiles.h>
#include <sys/services/UnitText.h>

namespace KTEST {
namespace {

using KSYS::KUnitFiles;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* own = "etc/systemd/system";

class KUnitFilesTest : public testing::Test {
  protected:
    /// An administrator's unit file with this section [Install].
    void GivenUnit(const std::string& unit, const std::string& install) {
        tree.Write(std::string(own) + '/' + unit, "[Service]\nExecStart=/a\n[Install]\n" + install);
    }
    std::vector<std::string> Links() const {
        std::vector<std::string> links;
        for (const std::string& line : tree.List(own)) {
            if (line.starts_with('l')) {
                links.push_back(line.substr(2));
            }
        }
        return links;
    }

    TemporaryTree tree;
    std::vector<std::string> notices;
    KUnitFiles files{tree.Path(), [this](const std::string& notice) { notices.push_back(notice); }};
};

// Writing and finding

TEST_F(KUnitFilesTest, WritesAFileThatEverybodyMayReadWithItsDirectories) {
    const UmaskGuard mask(077);
    files.Write("a.service", "text");
    EXPECT_THAT(
        tree.List("etc"),
        ElementsAre(
            "d 0755 systemd", "d 0755 systemd/system", "f 0644 systemd/system/a.service \"text\""
        )
    );
}

TEST_F(KUnitFilesTest, ReplacesAFormerFileInOneStep) {
    tree.Write("etc/systemd/system/a.service", "former", 0600);
    const ino_t former = tree.Status("etc/systemd/system/a.service").st_ino;
    files.Write("a.service", "new");
    EXPECT_THAT(tree.List(own), ElementsAre("f 0600 a.service \"new\""));
    EXPECT_NE(tree.Status("etc/systemd/system/a.service").st_ino, former) << "it was written over";
}

TEST_F(KUnitFilesTest, ADirectoryInTheWayIsTold) {
    tree.Directory("etc/systemd/system/a.service");
    const KSYS::KServiceError error = ServiceErrorOf([&] { files.Write("a.service", "text"); });
    EXPECT_EQ(error.GetStatus(), unsigned{EISDIR});
    EXPECT_EQ(
        std::string(error.what()), SystemInfo(tree.Path("etc/systemd/system/a.service"), EISDIR)
    );
}

TEST_F(KUnitFilesTest, RemovesAFileAndIsContentWithoutOne) {
    files.Write("a.service", "text");
    files.Remove("a.service");
    files.Remove("a.service");
    EXPECT_THAT(tree.List(own), IsEmpty());
}

TEST_F(KUnitFilesTest, FindsTheFileThatSystemdWouldTake) {
    EXPECT_EQ(files.Find("a.service"), "");
    tree.Write("usr/lib/systemd/system/a.service", "");
    EXPECT_EQ(files.Find("a.service"), "/usr/lib/systemd/system/a.service");
    tree.Write("lib/systemd/system/a.service", "");
    EXPECT_EQ(files.Find("a.service"), "/lib/systemd/system/a.service");
    tree.Write("usr/local/lib/systemd/system/a.service", "");
    EXPECT_EQ(files.Find("a.service"), "/usr/local/lib/systemd/system/a.service");
    tree.Write("run/systemd/system/a.service", "");
    EXPECT_EQ(files.Find("a.service"), "/run/systemd/system/a.service");
    tree.Link("etc/systemd/system/a.service", "/dangling");
    EXPECT_EQ(files.Find("a.service"), "/etc/systemd/system/a.service");
}

TEST_F(KUnitFilesTest, OnlyWhatItWroteItselfIsOurs) {
    const std::string ours = KSYS::UnitText("", "/a", "");
    EXPECT_FALSE(files.IsOurs("a.service"));
    tree.Write("usr/lib/systemd/system/a.service", ours);
    EXPECT_FALSE(files.IsOurs("a.service")) << "it lies elsewhere";
    files.Write("a.service", ours);
    EXPECT_TRUE(files.IsOurs("a.service"));
    tree.Write("etc/systemd/system/a.service", "[Service]\n");
    EXPECT_FALSE(files.IsOurs("a.service"));
    tree.Remove("etc/systemd/system/a.service");
    tree.Link("etc/systemd/system/a.service", tree.Path("usr/lib/systemd/system/a.service"));
    EXPECT_FALSE(files.IsOurs("a.service")) << "it is a link";
}

// Enabling

struct InstallRow {
    const char* name;
    std::string install;
    std::vector<std::string> links;
};

class SysUnitLinksTest : public KUnitFilesTest, public testing::WithParamInterface<InstallRow> {};

TEST_P(SysUnitLinksTest, AreLaidAndTakenAway) {
    GivenUnit("a.service", GetParam().install);
    const std::vector<std::string> before = tree.List();
    files.Enable("a.service");
    EXPECT_EQ(Links(), GetParam().links);
    files.Enable("a.service");
    EXPECT_EQ(Links(), GetParam().links) << "a second time";
    files.Disable("a.service");
    EXPECT_EQ(tree.List(), before);
    files.Disable("a.service");
    EXPECT_EQ(tree.List(), before);
}

constexpr const char* target = " -> /etc/systemd/system/a.service";

INSTANTIATE_TEST_SUITE_P(
    For,
    SysUnitLinksTest,
    testing::Values(
        InstallRow{"NoKey", "", {}},
        InstallRow{
            "OneTarget",
            "WantedBy=multi-user.target\n",
            {std::string("multi-user.target.wants/a.service") + target}},
        InstallRow{
            "SeveralTargets",
            "WantedBy=x.target  y.target\nWantedBy=z.target\n",
            {std::string("x.target.wants/a.service") + target,
             std::string("y.target.wants/a.service") + target,
             std::string("z.target.wants/a.service") + target}},
        InstallRow{
            "AListThatBeginsAnew",
            "WantedBy=x.target\nWantedBy=\nWantedBy=y.target\n",
            {std::string("y.target.wants/a.service") + target}},
        InstallRow{
            "EveryKindOfDependency",
            "RequiredBy=x.target\nUpheldBy=x.target\nWantedBy=x.target\n",
            {std::string("x.target.requires/a.service") + target,
             std::string("x.target.upholds/a.service") + target,
             std::string("x.target.wants/a.service") + target}},
        InstallRow{"AnAlias", "Alias=b.service a.service\n", {std::string("b.service") + target}},
        InstallRow{
            "ASpecifier",
            "WantedBy=%p.target %N-%%.target\n",
            {std::string("a-%.target.wants/a.service") + target,
             std::string("a.target.wants/a.service") + target}}
    ),
    NameOfRow()
);

TEST_F(KUnitFilesTest, LinksLeadToWhereTheFileIs) {
    tree.Write("usr/lib/systemd/system/a.service", "[Install]\nWantedBy=x.target\n");
    files.Enable("a.service");
    EXPECT_THAT(
        Links(), ElementsAre("x.target.wants/a.service -> /usr/lib/systemd/system/a.service")
    );
}

TEST_F(KUnitFilesTest, UnitsThatGoTogetherAreEnabledAndDisabledTogether) {
    GivenUnit("a.service", "WantedBy=x.target\nAlso=b.socket\n");
    GivenUnit("b.socket", "WantedBy=sockets.target\nAlso=a.service\n");
    files.Enable("a.service");
    EXPECT_THAT(Links(), SizeIs(2));
    files.Disable("a.service");
    EXPECT_THAT(Links(), IsEmpty());
}

TEST_F(KUnitFilesTest, LinksOfOtherUnitsStay) {
    GivenUnit("a.service", "WantedBy=x.target\n");
    GivenUnit("b.service", "WantedBy=x.target\n");
    files.Enable("a.service");
    files.Enable("b.service");
    tree.Link("etc/systemd/system/c.service", "/lib/systemd/system/d.service");
    files.Disable("a.service");
    EXPECT_THAT(
        Links(),
        ElementsAre(
            "c.service -> /lib/systemd/system/d.service",
            "x.target.wants/b.service -> /etc/systemd/system/b.service"
        )
    );
}

TEST_F(KUnitFilesTest, AFileInThePlaceOfALinkIsTold) {
    GivenUnit("a.service", "WantedBy=x.target\n");
    tree.Write("etc/systemd/system/x.target.wants/a.service", "mine");
    EXPECT_EQ(StatusOf([&] { files.Enable("a.service"); }), unsigned{EEXIST});
    files.Disable("a.service");
    EXPECT_EQ(tree.Read("etc/systemd/system/x.target.wants/a.service"), "mine");
}

TEST_F(KUnitFilesTest, AnAliasThatIsAnotherUnitsIsRefused) {
    GivenUnit("a.service", "Alias=b.service\n");
    GivenUnit("b.service", "");
    EXPECT_EQ(StatusOf([&] { files.Enable("a.service"); }), 181U);
    EXPECT_THAT(Links(), IsEmpty());
}

TEST_F(KUnitFilesTest, ANameThatWouldBeAPathIsLeftOutLoudly) {
    GivenUnit("a.service", "WantedBy=../x .hidden x%i\n");
    files.Enable("a.service");
    EXPECT_THAT(Links(), IsEmpty());
    EXPECT_THAT(notices, SizeIs(3));
}

TEST_F(KUnitFilesTest, AMissingFileAndAMaskedOneCannotBeEnabled) {
    EXPECT_EQ(StatusOf([&] { files.Enable("a.service"); }), 180U);
    tree.Link("etc/systemd/system/a.service", "/dev/null");
    EXPECT_EQ(StatusOf([&] { files.Enable("a.service"); }), 182U);
    files.Disable("a.service");
    EXPECT_TRUE(tree.Exists("etc/systemd/system/a.service"));
}

// What is told of it

TEST_F(KUnitFilesTest, FilesAndLinksAreTold) {
    tree.Directory(std::string(own) + "/there.target.wants");
    GivenUnit("a.service", "WantedBy=there.target new.target\nAlias=other.service\n");
    const WriteRecording written(tree.Path(own));
    files.Write("b.service", "text");
    files.Enable("a.service");
    EXPECT_THAT(
        written.Lines(),
        ElementsAre(
            "file b.service",
            "link there.target.wants/a.service",
            "directory new.target.wants",
            "link new.target.wants/a.service",
            "link other.service"
        )
    );
}

TEST_F(KUnitFilesTest, DeletedFilesAndLinksAreTold) {
    GivenUnit("a.service", "WantedBy=one.target\n");
    files.Enable("a.service");
    const WriteRecording written(tree.Path(own));
    files.Disable("a.service");
    files.Disable("a.service");
    files.Remove("a.service");
    files.Remove("a.service");
    EXPECT_THAT(
        written.Lines(),
        ElementsAre(
            "file deleted one.target.wants/a.service",
            "directory deleted one.target.wants",
            "file deleted a.service"
        )
    );
}

} // namespace
} // namespace KTEST
