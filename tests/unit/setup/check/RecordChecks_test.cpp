// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

using RecordChecksTest = KTEST::GivenKit;

constexpr char configured[] = "defaultPath.$os$=/opt/svc\n"
                              "profile=put,$pathTargetConfig$$iniFile$,S,K,V\n";

TEST_F(RecordChecksTest, NoRuleMakesTheLink) {
    Script(std::string("; head\n[install]\n") + configured);
    EXPECT_EQ(
        TheFinding("no-record-link"),
        "install.ini:2:1 error [[install]] no rule makes the link \"/etc/svc/svc\", by which the "
        "product counts as installed; write "
        "file=symlink,PROGRAM,$pathTargetBin$,/etc/$serviceName$,$serviceName$"
    );
}

TEST_F(RecordChecksTest, TheLinkIsNotAbsolute) {
    Script(
        std::string("[install]\n") + configured +
        "file=symlink,svc,opt/svc/lin/x86_64,/etc/$serviceName$,$serviceName$"
    );
    EXPECT_THAT(
        TheFinding("no-record-link"),
        StartsWith("install.ini:4:18 error [opt/svc/lin/x86_64] the link \"/etc/svc/svc\" does not "
                   "lead to the product: \"opt/svc/lin/x86_64/svc\" is not absolute; write ")
    );
}

TEST_F(RecordChecksTest, TheLinkIsTwoLevelsBelowTheProduct) {
    Script(
        std::string("[install]\n") + configured +
        "file=symlink,svc,$pathTarget$bin,/etc/$serviceName$,$serviceName$"
    );
    EXPECT_THAT(
        TheFinding("no-record-link"),
        HasSubstr("\"/opt/svc/bin/svc\" is not three levels below the product path, as in "
                  "\"/opt/svc/lin/x86_64/program\"")
    );
}

TEST_F(RecordChecksTest, AFileInThePlaceOfTheLinkIsNone) {
    Script(
        std::string("[install]\n") + configured +
        "file=copy,svc,$pathSourceBinX86_64$,/etc/$serviceName$,$serviceName$"
    );
    EXPECT_THAT(TheFinding("no-record-link"), StartsWith("install.ini:1:1 error"));
}

TEST_F(RecordChecksTest, TheLinkIsThreeLevelsBelowTheProduct) {
    Script(
        std::string("[install]\n") + configured +
        "file=symlink,any,$pathTarget$a/b/,/etc/$serviceName$,$serviceName$"
    );
    EXPECT_FALSE(Finds("no-record-link"));
}

TEST_F(RecordChecksTest, TheProductMayGoElsewhere) {
    for (const KSETUP::KFinding& finding : Check("/srv/other").findings) {
        ADD_FAILURE() << finding.message;
    }
}

TEST_F(RecordChecksTest, NoRuleMakesTheConfiguration) {
    Script("[install]\ndefaultPath.$os$=/opt/svc\nprofile=put,$pathTargetConfig$other.ini,S,K,V");
    EXPECT_EQ(
        TheFinding("no-record-file"),
        "install.ini:1:1 error [[install]] no rule makes the configuration file "
        "\"/opt/svc/config/svc.ini\", in which the record of the product is kept; write "
        "directory=create,$pathTargetConfig$ and "
        "profile=put,$pathTargetConfig$$iniFile$,SECTION,KEY,VALUE"
    );
}

TEST_F(RecordChecksTest, AnyRuleMayMakeTheConfiguration) {
    File("svc.ini");
    Script("[install]\nfile=copy,svc.ini,$pathSource$,$pathTargetConfig$");
    EXPECT_FALSE(Finds("no-record-file"));
    Script("[install]\nprofile=create,$pathTargetConfig$svc.ini");
    EXPECT_FALSE(Finds("no-record-file"));
}

TEST_F(RecordChecksTest, TheRemovalLeavesTheLink) {
    Script(
        std::string("[install]\n") + configured +
        "file=symlink,svc,$pathTargetBin$,/etc/$serviceName$,$serviceName$\n[remove]\n"
        "file=delete,$serviceName$,/etc\n"
    );
    EXPECT_EQ(
        TheFinding("link-left"),
        "install.ini:5:1 error [[remove]] the removal leaves the link \"/etc/svc/svc\", so the "
        "product still counts as installed; write file=delete,$serviceName$,/etc/$serviceName$ as "
        "its last deletion"
    );
}

TEST_F(RecordChecksTest, WithoutARemovalTheLinkIsLeft) {
    Script(
        std::string("[install]\n") + configured +
        "file=symlink,svc,$pathTargetBin$,/etc/$serviceName$,$serviceName$\n"
    );
    EXPECT_THAT(TheFinding("link-left"), HasSubstr("; add a section [remove] and write"));
}

TEST_F(RecordChecksTest, ADeletedDirectoryTakesTheLinkAlong) {
    Script(
        std::string("[install]\n") + configured +
        "file=symlink,svc,$pathTargetBin$,/etc/$serviceName$,$serviceName$\n[remove]\n"
        "directory=delete,/etc/$serviceName$\n"
    );
    EXPECT_FALSE(Finds("link-left"));
}

TEST_F(RecordChecksTest, TheFieldsOfTheLinkAreReversed) {
    Script(
        std::string("[install]\n") + configured +
        "file=symlink,$serviceName$,/etc/$serviceName$,$pathTargetBin$,svc"
    );
    EXPECT_THAT(
        TheFinding("no-record-link"),
        HasSubstr(
            "this link leads to \"/etc/svc/svc\", by which the product counts as installed and "
            "where a link has to stand: its fields are reversed; write file=symlink,"
        )
    );
}

TEST_F(RecordChecksTest, TheLinkLeadsToWhatNoRuleMakes) {
    const std::string link = "file=symlink,other,$pathTargetBin$,/etc/$serviceName$,$serviceName$";
    Script(std::string("[install]\n") + configured + link);
    EXPECT_EQ(
        TheFinding("record-target"),
        "install.ini:4:14 warning [other] the link \"/etc/svc/svc\" leads to "
        "\"/opt/svc/lin/x86_64/other\", which no rule makes; name the program as it is copied, or "
        "copy it"
    );
    Script(std::string("[install]\nprocess=start,make\n") + configured + link);
    EXPECT_FALSE(Finds("record-target"));
}

TEST_F(RecordChecksTest, TheLinkLeadsToWhatIsCopied) {
    EXPECT_FALSE(Finds("record-target"));
}

} // namespace
