// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;

class OrderChecksTest : public KTEST::GivenKitWithMistake {
  protected:
    OrderChecksTest() {
        File("one/a");
        File("one/b");
        File("two/a");
    }
};

TEST_P(OrderChecksTest, TellsTheMistakeAndNotTheNearMiss) {
    ExpectTheFindingOrNone();
}

INSTANTIATE_TEST_SUITE_P(
    Lines,
    OrderChecksTest,
    ::testing::Values(
        KTEST::FindingRow{
            "CopyBeforeCreate",
            "copy-before-create",
            2,
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$doc\n"
            "directory=create,$pathTarget$doc"},
        KTEST::FindingRow{
            "PutBeforeCreate",
            "copy-before-create",
            2,
            "profile=put,$pathTarget$doc/a.ini,S,K,V\n"
            "directory=create,$pathTarget$doc"},
        KTEST::FindingRow{
            "LinkBeforeCreate",
            "copy-before-create",
            2,
            "file=symlink,a,/a,$pathTarget$doc\n"
            "directory=create,$pathTarget$doc/more"},
        KTEST::FindingRow{
            "CreateBeforeCopy",
            "copy-before-create",
            0,
            "directory=create,$pathTarget$doc/more\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$doc"},
        KTEST::FindingRow{
            "CommandMayMakeIt",
            "copy-before-create",
            0,
            "process=start,mkdir -p /opt/svc/doc\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$doc\n"
            "directory=create,$pathTarget$doc"},
        KTEST::FindingRow{
            "DirectoryIsNeverMade",
            "missing-directory",
            2,
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$doc"},
        KTEST::FindingRow{
            "PutIntoAMissingDirectory",
            "missing-directory",
            2,
            "profile=put,$pathTarget$doc/a.ini,S,K,V"},
        KTEST::FindingRow{
            "OwnDirectoryInEtcIsNeverMade",
            "missing-directory",
            2,
            "file=copy,svc,$pathSourceBinX86_64$,/etc/$serviceName$/conf.d"},
        KTEST::FindingRow{
            "DirectoryOfTheSystem",
            "missing-directory",
            0,
            "file=copy,svc,$pathSourceBinX86_64$,/etc/cron.d\n"
            "file=symlink,svc,$pathTargetBin$,/usr/local/bin"},
        KTEST::FindingRow{
            "DirectoryIsMade",
            "missing-directory",
            0,
            "directory=create,$pathTarget$doc\n"
            "profile=put,$pathTarget$doc/a.ini,S,K,V"},
        KTEST::FindingRow{
            "DirectoryIsALink",
            "missing-directory",
            0,
            "directory=create,$pathTarget$2.1\n"
            "file=symlink,2.1,/opt/svc,$pathTarget$,current\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$current"},
        KTEST::FindingRow{
            "TwoCopiesOntoOneTarget",
            "double-copy",
            4,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "file=copy,a,$pathSource$two,$pathTarget$doc"},
        KTEST::FindingRow{
            "TwoWildcardsOntoOneTarget",
            "double-copy",
            4,
            "directory=create,$pathTarget$doc\n"
            "file=copy,*,$pathSource$one,$pathTarget$doc\n"
            "file=copy,*,$pathSource$two,$pathTarget$doc"},
        KTEST::FindingRow{
            "ExceptionFromAWildcard",
            "double-copy",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=copy,*,$pathSource$one,$pathTarget$doc\n"
            "file=copy,a,$pathSource$two,$pathTarget$doc"},
        KTEST::FindingRow{
            "SameFileTwice",
            "double-copy",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "file=copy,*,$pathSource$one,$pathTarget$doc"},
        KTEST::FindingRow{
            "CopyIsUsedBetween",
            "double-copy",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "process=start,true\n"
            "file=copy,a,$pathSource$two,$pathTarget$doc"},
        KTEST::FindingRow{
            "TwoNames",
            "double-copy",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "file=copy,a,$pathSource$two,$pathTarget$doc,b"},
        KTEST::FindingRow{
            "NewFileIsDeleted",
            "deleted-again",
            4,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "file=delete,a,$pathTarget$doc"},
        KTEST::FindingRow{
            "NewFilesAreDeletedByAWildcard",
            "deleted-again",
            4,
            "directory=create,$pathTarget$doc\n"
            "file=copy,*,$pathSource$one,$pathTarget$doc\n"
            "file=delete,*,$pathTarget$doc"},
        KTEST::FindingRow{
            "NewFilesGoWithTheirDirectory",
            "deleted-again",
            4,
            "directory=create,$pathTarget$doc\n"
            "file=copy,*,$pathSource$one,$pathTarget$doc\n"
            "directory=delete,$pathTarget$doc"},
        KTEST::FindingRow{
            "OldFilesAreDeletedFirst",
            "deleted-again",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=delete,*,$pathTarget$doc\n"
            "file=copy,*,$pathSource$one,$pathTarget$doc"},
        KTEST::FindingRow{
            "FileIsUsedAndDeleted",
            "deleted-again",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "process=start,sh /opt/svc/doc/a\n"
            "file=delete,a,$pathTarget$doc"},
        KTEST::FindingRow{
            "AnotherFileIsDeleted",
            "deleted-again",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "file=delete,b,$pathTarget$doc"},
        KTEST::FindingRow{
            "EmptiedConfiguration",
            "overwritten-configuration",
            3,
            "directory=create,$pathTargetConfig$\n"
            "profile=create,$pathTargetConfig$$iniFile$"},
        KTEST::FindingRow{
            "AnotherProfileIsMade",
            "overwritten-configuration",
            0,
            "directory=create,$pathTargetConfig$\n"
            "profile=create,$pathTargetConfig$cache.ini"},
        KTEST::FindingRow{
            "SectionInBrackets",
            "section-in-brackets",
            2,
            "profile=put,$pathTargetConfig$$iniFile$,[General],K,V"},
        KTEST::FindingRow{
            "SectionWithoutBrackets",
            "section-in-brackets",
            0,
            "profile=put,$pathTargetConfig$$iniFile$,General,K,[V]"}
    ),
    KTEST::NameOfRow()
);

using OrderMessagesTest = KTEST::GivenKit;

TEST_F(OrderMessagesTest, SayWhatToMove) {
    Install("file=copy,svc,$pathSourceBinX86_64$,$pathTarget$doc\ndirectory=create,$pathTarget$doc"
    );
    EXPECT_EQ(
        TheFinding("copy-before-create"),
        "install.ini:2:37 error [$pathTarget$doc] the directory \"/opt/svc/doc\" is made only by a "
        "later line, so this fails; move its directory=create in front of this line"
    );
}

TEST_F(OrderMessagesTest, ALostCopyIsToldWithBothPlaces) {
    File("one/a");
    File("two/a");
    Install("directory=create,$pathTarget$doc\nfile=copy,a,$pathSource$one,$pathTarget$doc\n"
            "file=copy,a,$pathSource$two,$pathTarget$doc");
    EXPECT_THAT(
        TheFinding("double-copy"),
        HasSubstr("\"/opt/svc/doc/a\" is copied by line 3 already, from \"one/a\", which is lost; ")
    );
}

TEST_F(OrderMessagesTest, ADirectoryNamedByALinkIsMadeWhereItLeads) {
    Install("directory=create,$pathTarget$v2\nfile=symlink,v2,/opt/svc,$pathTarget$,current\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$current");
    Remove("file=delete,svc,$pathTarget$v2\ndirectory=delete,$pathTarget$v2\n"
           "file=delete,current,$pathTarget$");
    EXPECT_FALSE(Finds("not-removed"));
}

} // namespace
