// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;

using PathChecksTest = KTEST::GivenKitWithMistake;

TEST_P(PathChecksTest, TellsTheMistakeAndNotTheNearMiss) {
    ExpectTheFindingOrNone();
}

INSTANTIATE_TEST_SUITE_P(
    Lines,
    PathChecksTest,
    ::testing::Values(
        KTEST::FindingRow{"RelativeDirectory", "relative-path", 2, "directory=create,opt/svc/doc"},
        KTEST::FindingRow{
            "RelativeSource", "relative-path", 2, "file=copy,svc,lin/x86_64,$pathTarget$"},
        KTEST::FindingRow{
            "RelativeTarget", "relative-path", 2, "file=copy,svc,$pathSourceBinX86_64$,bin"},
        KTEST::FindingRow{"RelativeDeletion", "relative-path", 2, "file=delete,old,doc"},
        KTEST::FindingRow{"RelativeProfile", "relative-path", 2, "profile=put,svc.ini,S,K,V"},
        KTEST::FindingRow{
            "RelativeEndOfALink", "relative-path", 0, "file=symlink,svc,../bin,$pathTarget$,svc"},
        KTEST::FindingRow{
            "AbsolutePath",
            "relative-path",
            0,
            "directory=create,/opt/svc/doc\n"
            "file=delete,old,$pathTarget$doc"},
        KTEST::FindingRow{
            "UnknownMacroIsNoRelativePath", "relative-path", 0, "directory=create,$pathTarger$doc"},
        KTEST::FindingRow{
            "NewNameWithADirectory",
            "new-name",
            2,
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$,bin/svc"},
        KTEST::FindingRow{
            "NewNameThatIsADirectory",
            "new-name",
            2,
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$,$pathTargetBinX86_64$"},
        KTEST::FindingRow{
            "NewNameOfALinkWithADirectory",
            "new-name",
            2,
            "file=symlink,svc,$pathTargetBinX86_64$,/etc,svc/svc"},
        KTEST::FindingRow{
            "NewNameOfAWildcard",
            "new-name",
            2,
            "file=copy,*,$pathSourceBinX86_64$,$pathTarget$,svc.old"},
        KTEST::FindingRow{
            "NewNameAlone",
            "new-name",
            0,
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$,svc.old"},
        KTEST::FindingRow{
            "WildcardInALink",
            "wildcard-link",
            2,
            "file=symlink,*.so,$pathTargetBinX86_64$,$pathTarget$"},
        KTEST::FindingRow{
            "LinkWithoutAWildcard",
            "wildcard-link",
            0,
            "file=symlink,a.so,$pathTargetBinX86_64$,$pathTarget$"},
        KTEST::FindingRow{
            "LinkOntoAFile",
            "link-onto-file",
            4,
            "directory=create,$pathTarget$bin\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$bin\n"
            "file=symlink,svc,/usr/local/bin,$pathTarget$bin"},
        KTEST::FindingRow{
            "LinkBesideAFile",
            "link-onto-file",
            0,
            "directory=create,$pathTarget$bin\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$bin\n"
            "file=symlink,svc,$pathTarget$bin,$pathTarget$bin,svc2"},
        KTEST::FindingRow{
            "LinkOntoALink",
            "link-onto-file",
            0,
            "directory=create,$pathTarget$bin\n"
            "file=symlink,a,/a,$pathTarget$bin\n"
            "file=symlink,a,/b,$pathTarget$bin"},
        KTEST::FindingRow{
            "LinkInThePlaceOfADeletedFile",
            "link-onto-file",
            0,
            "directory=create,$pathTarget$bin\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$bin\n"
            "file=delete,svc,$pathTarget$bin\n"
            "file=symlink,svc,/a,$pathTarget$bin"},
        KTEST::FindingRow{
            "MissingSeparator", "missing-separator", 2, "directory=create,$pathTargetLin$plugins"},
        KTEST::FindingRow{
            "MissingSeparatorBeforeAMacro",
            "missing-separator",
            2,
            "directory=create,$pathTargetMac$$serviceName$"},
        KTEST::FindingRow{
            "SeparatorIsThere",
            "missing-separator",
            0,
            "directory=create,$pathTargetLin$/plugins\n"
            "directory=delete,$pathTargetLin$\n"
            "directory=create,$pathTargetBin$plugins"},
        KTEST::FindingRow{
            "DeletionInTheKit", "changed-kit", 2, "file=delete,svc,$pathSourceBinX86_64$"},
        KTEST::FindingRow{
            "DirectoryOfTheKitIsDeleted",
            "changed-kit",
            2,
            "directory=delete,$pathSource$lin/x86_64"},
        KTEST::FindingRow{
            "CopyIntoTheKit", "changed-kit", 2, "file=copy,svc,$pathTarget$,$pathSource$,old"},
        KTEST::FindingRow{
            "OptionInTheKit", "changed-kit", 2, "profile=put,$pathSource$svc.ini,S,K,V"},
        KTEST::FindingRow{
            "CopyFromTheKit",
            "changed-kit",
            0,
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$\n"
            "file=delete,svc,$pathTarget$"}
    ),
    KTEST::NameOfRow()
);

using PathMessagesTest = KTEST::GivenKit;

TEST_F(PathMessagesTest, SayWhatToWrite) {
    Install("directory=create,opt/svc/doc");
    EXPECT_EQ(
        TheFinding("relative-path"),
        "install.ini:2:18 warning [opt/svc/doc] \"opt/svc/doc\" is relative, so it is "
        "\"/opt/svc/doc\" for the run; begin it with \"/\" or with a directory's macro, as "
        "$pathTarget$ or $pathSource$"
    );
}

TEST_F(PathMessagesTest, AWarningIsAllowedByItsName) {
    Install("; check: allow relative-path\ndirectory=create,opt/svc/doc");
    EXPECT_FALSE(Finds("relative-path"));
}

TEST_F(PathMessagesTest, ALinkOntoAFileIsToldWithTheFile) {
    Install(
        "directory=create,$pathTarget$bin\nfile=copy,svc,$pathSourceBinX86_64$,$pathTarget$bin\n"
        "file=symlink,svc,/usr/local/bin,$pathTarget$bin"
    );
    EXPECT_THAT(
        TheFinding("link-onto-file"),
        HasSubstr("the link \"/opt/svc/bin/svc\" would replace the file of line 3, and a link "
                  "replaces only links; write first the file that is there")
    );
}

} // namespace
