// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

/// Lines of [install], and the check that finds something in the one of this number, or nothing.
struct PathChecksTestRow {
    const char* name;
    const char* rule;
    unsigned line; ///< 0: silent
    const char* lines;

    friend void PrintTo(const PathChecksTestRow& row, std::ostream* out) { *out << row.name; }
};

class PathChecksTest : public KTEST::GivenKit,
                       public ::testing::WithParamInterface<PathChecksTestRow> {
  protected:
    PathChecksTest() {}
};

TEST_P(PathChecksTest, TellsTheMistakeAndNotTheNearMiss) {
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
    PathChecksTest,
    ::testing::Values(
        PathChecksTestRow{"RelativeDirectory", "relative-path", 2, "directory=create,opt/svc/doc"},
        PathChecksTestRow{
            "RelativeSource", "relative-path", 2, "file=copy,svc,lin/x86_64,$pathTarget$"},
        PathChecksTestRow{
            "RelativeTarget", "relative-path", 2, "file=copy,svc,$pathSourceBinX86_64$,bin"},
        PathChecksTestRow{"RelativeDeletion", "relative-path", 2, "file=delete,old,doc"},
        PathChecksTestRow{"RelativeProfile", "relative-path", 2, "profile=put,svc.ini,S,K,V"},
        PathChecksTestRow{
            "RelativeEndOfALink", "relative-path", 0, "file=symlink,svc,../bin,$pathTarget$,svc"},
        PathChecksTestRow{
            "AbsolutePath",
            "relative-path",
            0,
            "directory=create,/opt/svc/doc\n"
            "file=delete,old,$pathTarget$doc"},
        PathChecksTestRow{
            "UnknownMacroIsNoRelativePath", "relative-path", 0, "directory=create,$pathTarger$doc"},
        PathChecksTestRow{
            "NewNameWithADirectory",
            "new-name",
            2,
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$,bin/svc"},
        PathChecksTestRow{
            "NewNameThatIsADirectory",
            "new-name",
            2,
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$,$pathTargetBinX86_64$"},
        PathChecksTestRow{
            "NewNameOfALinkWithADirectory",
            "new-name",
            2,
            "file=symlink,svc,$pathTargetBinX86_64$,/etc,svc/svc"},
        PathChecksTestRow{
            "NewNameOfAWildcard",
            "new-name",
            2,
            "file=copy,*,$pathSourceBinX86_64$,$pathTarget$,svc.old"},
        PathChecksTestRow{
            "NewNameAlone",
            "new-name",
            0,
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$,svc.old"},
        PathChecksTestRow{
            "WildcardInALink",
            "wildcard-link",
            2,
            "file=symlink,*.so,$pathTargetBinX86_64$,$pathTarget$"},
        PathChecksTestRow{
            "LinkWithoutAWildcard",
            "wildcard-link",
            0,
            "file=symlink,a.so,$pathTargetBinX86_64$,$pathTarget$"},
        PathChecksTestRow{
            "LinkOntoAFile",
            "link-onto-file",
            4,
            "directory=create,$pathTarget$bin\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$bin\n"
            "file=symlink,svc,/usr/local/bin,$pathTarget$bin"},
        PathChecksTestRow{
            "LinkBesideAFile",
            "link-onto-file",
            0,
            "directory=create,$pathTarget$bin\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$bin\n"
            "file=symlink,svc,$pathTarget$bin,$pathTarget$bin,svc2"},
        PathChecksTestRow{
            "LinkOntoALink",
            "link-onto-file",
            0,
            "directory=create,$pathTarget$bin\n"
            "file=symlink,a,/a,$pathTarget$bin\n"
            "file=symlink,a,/b,$pathTarget$bin"},
        PathChecksTestRow{
            "LinkInThePlaceOfADeletedFile",
            "link-onto-file",
            0,
            "directory=create,$pathTarget$bin\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$bin\n"
            "file=delete,svc,$pathTarget$bin\n"
            "file=symlink,svc,/a,$pathTarget$bin"},
        PathChecksTestRow{
            "MissingSeparator", "missing-separator", 2, "directory=create,$pathTargetLin$plugins"},
        PathChecksTestRow{
            "MissingSeparatorBeforeAMacro",
            "missing-separator",
            2,
            "directory=create,$pathTargetMac$$serviceName$"},
        PathChecksTestRow{
            "SeparatorIsThere",
            "missing-separator",
            0,
            "directory=create,$pathTargetLin$/plugins\n"
            "directory=delete,$pathTargetLin$\n"
            "directory=create,$pathTargetBin$plugins"},
        PathChecksTestRow{
            "DeletionInTheKit", "changed-kit", 2, "file=delete,svc,$pathSourceBinX86_64$"},
        PathChecksTestRow{
            "DirectoryOfTheKitIsDeleted",
            "changed-kit",
            2,
            "directory=delete,$pathSource$lin/x86_64"},
        PathChecksTestRow{
            "CopyIntoTheKit", "changed-kit", 2, "file=copy,svc,$pathTarget$,$pathSource$,old"},
        PathChecksTestRow{
            "OptionInTheKit", "changed-kit", 2, "profile=put,$pathSource$svc.ini,S,K,V"},
        PathChecksTestRow{
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
