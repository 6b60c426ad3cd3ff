// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

/// Lines of [install], and the check that finds something in the one of this number, or nothing.
struct OrderChecksTestRow {
    const char* name;
    const char* rule;
    unsigned line; ///< 0: silent
    const char* lines;

    friend void PrintTo(const OrderChecksTestRow& row, std::ostream* out) { *out << row.name; }
};

class OrderChecksTest : public KTEST::GivenKit,
                        public ::testing::WithParamInterface<OrderChecksTestRow> {
  protected:
    OrderChecksTest() {
        File("one/a");
        File("one/b");
        File("two/a");
    }
};

TEST_P(OrderChecksTest, TellsTheMistakeAndNotTheNearMiss) {
    Install(GetParam().lines);
    if (GetParam().line == 0) {
        EXPECT_THAT(Findings(GetParam().rule), ::testing::IsEmpty());
    } else {
        EXPECT_THAT(
            TheFinding(GetParam().rule),
            StartsWith("install.ini:" + std::to_string(GetParam().line) + ":")
        );
    }
}

INSTANTIATE_TEST_SUITE_P(
    Lines,
    OrderChecksTest,
    ::testing::Values(
        OrderChecksTestRow{
            "CopyBeforeCreate",
            "copy-before-create",
            2,
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$doc\n"
            "directory=create,$pathTarget$doc"},
        OrderChecksTestRow{
            "PutBeforeCreate",
            "copy-before-create",
            2,
            "profile=put,$pathTarget$doc/a.ini,S,K,V\n"
            "directory=create,$pathTarget$doc"},
        OrderChecksTestRow{
            "LinkBeforeCreate",
            "copy-before-create",
            2,
            "file=symlink,a,/a,$pathTarget$doc\n"
            "directory=create,$pathTarget$doc/more"},
        OrderChecksTestRow{
            "CreateBeforeCopy",
            "copy-before-create",
            0,
            "directory=create,$pathTarget$doc/more\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$doc"},
        OrderChecksTestRow{
            "CommandMayMakeIt",
            "copy-before-create",
            0,
            "process=start,mkdir -p /opt/svc/doc\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$doc\n"
            "directory=create,$pathTarget$doc"},
        OrderChecksTestRow{
            "DirectoryIsNeverMade",
            "missing-directory",
            2,
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$doc"},
        OrderChecksTestRow{
            "PutIntoAMissingDirectory",
            "missing-directory",
            2,
            "profile=put,$pathTarget$doc/a.ini,S,K,V"},
        OrderChecksTestRow{
            "OwnDirectoryInEtcIsNeverMade",
            "missing-directory",
            2,
            "file=copy,svc,$pathSourceBinX86_64$,/etc/$serviceName$/conf.d"},
        OrderChecksTestRow{
            "DirectoryOfTheSystem",
            "missing-directory",
            0,
            "file=copy,svc,$pathSourceBinX86_64$,/etc/cron.d\n"
            "file=symlink,svc,$pathTargetBin$,/usr/local/bin"},
        OrderChecksTestRow{
            "DirectoryIsMade",
            "missing-directory",
            0,
            "directory=create,$pathTarget$doc\n"
            "profile=put,$pathTarget$doc/a.ini,S,K,V"},
        OrderChecksTestRow{
            "DirectoryIsALink",
            "missing-directory",
            0,
            "directory=create,$pathTarget$2.1\n"
            "file=symlink,2.1,/opt/svc,$pathTarget$,current\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$current"},
        OrderChecksTestRow{
            "TwoCopiesOntoOneTarget",
            "double-copy",
            4,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "file=copy,a,$pathSource$two,$pathTarget$doc"},
        OrderChecksTestRow{
            "TwoWildcardsOntoOneTarget",
            "double-copy",
            4,
            "directory=create,$pathTarget$doc\n"
            "file=copy,*,$pathSource$one,$pathTarget$doc\n"
            "file=copy,*,$pathSource$two,$pathTarget$doc"},
        OrderChecksTestRow{
            "ExceptionFromAWildcard",
            "double-copy",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=copy,*,$pathSource$one,$pathTarget$doc\n"
            "file=copy,a,$pathSource$two,$pathTarget$doc"},
        OrderChecksTestRow{
            "SameFileTwice",
            "double-copy",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "file=copy,*,$pathSource$one,$pathTarget$doc"},
        OrderChecksTestRow{
            "CopyIsUsedBetween",
            "double-copy",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "process=start,true\n"
            "file=copy,a,$pathSource$two,$pathTarget$doc"},
        OrderChecksTestRow{
            "TwoNames",
            "double-copy",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "file=copy,a,$pathSource$two,$pathTarget$doc,b"},
        OrderChecksTestRow{
            "NewFileIsDeleted",
            "deleted-again",
            4,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "file=delete,a,$pathTarget$doc"},
        OrderChecksTestRow{
            "NewFilesAreDeletedByAWildcard",
            "deleted-again",
            4,
            "directory=create,$pathTarget$doc\n"
            "file=copy,*,$pathSource$one,$pathTarget$doc\n"
            "file=delete,*,$pathTarget$doc"},
        OrderChecksTestRow{
            "NewFilesGoWithTheirDirectory",
            "deleted-again",
            4,
            "directory=create,$pathTarget$doc\n"
            "file=copy,*,$pathSource$one,$pathTarget$doc\n"
            "directory=delete,$pathTarget$doc"},
        OrderChecksTestRow{
            "OldFilesAreDeletedFirst",
            "deleted-again",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=delete,*,$pathTarget$doc\n"
            "file=copy,*,$pathSource$one,$pathTarget$doc"},
        OrderChecksTestRow{
            "FileIsUsedAndDeleted",
            "deleted-again",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "process=start,sh /opt/svc/doc/a\n"
            "file=delete,a,$pathTarget$doc"},
        OrderChecksTestRow{
            "AnotherFileIsDeleted",
            "deleted-again",
            0,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$one,$pathTarget$doc\n"
            "file=delete,b,$pathTarget$doc"},
        OrderChecksTestRow{
            "EmptiedConfiguration",
            "overwritten-configuration",
            3,
            "directory=create,$pathTargetConfig$\n"
            "profile=create,$pathTargetConfig$$iniFile$"},
        OrderChecksTestRow{
            "AnotherProfileIsMade",
            "overwritten-configuration",
            0,
            "directory=create,$pathTargetConfig$\n"
            "profile=create,$pathTargetConfig$cache.ini"},
        OrderChecksTestRow{
            "SectionInBrackets",
            "section-in-brackets",
            2,
            "profile=put,$pathTargetConfig$$iniFile$,[General],K,V"},
        OrderChecksTestRow{
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
