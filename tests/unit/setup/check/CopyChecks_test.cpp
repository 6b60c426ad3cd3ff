// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

using CopyChecksTest = KTEST::GivenKit;

TEST_F(CopyChecksTest, ASourceIsNotInTheKit) {
    Install("file=copy,readme.txt,$pathSource$doc,$pathTarget$");
    EXPECT_EQ(
        TheFinding("missing-source"),
        "install.ini:2:11 error [readme.txt] \"doc/readme.txt\" is not in the kit; add the file to "
        "the kit, or fix its name"
    );
}

TEST_F(CopyChecksTest, TheColumnIsRightBehindAnEmptyField) {
    Install("file=copy,,none,$pathSource$,$pathTarget$");
    EXPECT_THAT(TheFinding("missing-source"), StartsWith("install.ini:2:12 error [none]"));
}

TEST_F(CopyChecksTest, ASourceIsADirectory) {
    File("doc/readme.txt");
    Install("file=copy,doc,$pathSource$,$pathTarget$");
    EXPECT_THAT(
        TheFinding("missing-source"), HasSubstr("\"doc\" is a directory, and only files are copied")
    );
}

TEST_F(CopyChecksTest, ASourceIsALinkThatLeadsOutOfTheKit) {
    tree.Link("kit/hosts", "/etc/hosts");
    Install("file=copy,hosts,$pathSource$,$pathTarget$");
    EXPECT_THAT(TheFinding("missing-source"), HasSubstr("\"hosts\" is no file of the kit"));
}

TEST_F(CopyChecksTest, ASourceIsInTheKit) {
    File("doc/readme.txt");
    tree.Link("kit/first", "doc/second");
    tree.Link("kit/doc/second", "readme.txt");
    Install("file=copy,readme.txt,$pathSource$doc,$pathTarget$\n"
            "file=copy,first,$pathSource$,$pathTarget$");
    EXPECT_FALSE(Finds("missing-source"));
}

TEST_F(CopyChecksTest, ASourceIsWhatAnotherRuleInstalls) {
    File("readme.txt");
    Install("file=copy,readme.txt,$pathSource$,$pathTarget$\n"
            "file=copy,readme.txt,$pathTarget$,$pathTarget$,again.txt");
    EXPECT_FALSE(Finds("missing-source"));
}

TEST_F(CopyChecksTest, ASourceElsewhereMayBeMadeByACommand) {
    Install("process=start,make-it\nfile=copy,made,$pathTargetTemp$,$pathTarget$\n"
            "file=copy,none,$pathSource$,$pathTarget$");
    EXPECT_THAT(TheFinding("missing-source"), StartsWith("install.ini:4:11 error [none]"));
}

TEST_F(CopyChecksTest, ALineOfTheKitThatIsLoadedTwiceIsToldOnce) {
    Install("section=a\nsection=a");
    Sections("[a]\nfile=copy,none,$pathSource$,$pathTarget$");
    EXPECT_THAT(TheFinding("missing-source"), StartsWith("install.ini:21:11"));
}

TEST_F(CopyChecksTest, AWildcardMatchesNothing) {
    File("doc/readme.txt");
    Install("file=copy,*.html,$pathSource$doc/,$pathTarget$");
    EXPECT_EQ(
        TheFinding("empty-wildcard"),
        "install.ini:2:11 error [*.html] no file matches \"doc/*.html\"; add the files to the kit, "
        "or take the line out"
    );
}

TEST_F(CopyChecksTest, AWildcardMatchesAFile) {
    File("doc/readme.txt");
    Install("file=copy,*.tx?,$pathSource$doc,$pathTarget$\nfile=delete,*.old,$pathTarget$");
    EXPECT_FALSE(Finds("empty-wildcard"));
}

TEST_F(CopyChecksTest, AWildcardDoesNotCopyASubdirectory) {
    File("doc/readme.txt");
    File("doc/manual/first.txt");
    Install("file=copy,*,$pathSource$doc,$pathTarget$");
    EXPECT_EQ(
        TheFinding("skipped-directory"),
        "install.ini:2:11 error [*] \"doc/manual\" matches, but a directory is not copied; add a "
        "\"create\" and a \"copy\" of its own for it"
    );
}

TEST_F(CopyChecksTest, ASubdirectoryHasACopyOfItsOwn) {
    File("doc/readme.txt");
    File("doc/manual/first.txt");
    Install("file=copy,*,$pathSource$doc,$pathTarget$\n"
            "file=copy,*,$pathSource$doc/manual,$pathTarget$");
    EXPECT_FALSE(Finds("skipped-directory"));
}

TEST_F(CopyChecksTest, AnEmptySubdirectoryNeedsItsCreateOnly) {
    File("doc/readme.txt");
    tree.Directory("kit/doc/spool/empty");
    const std::string copy = "file=copy,*,$pathSource$doc,$pathTarget$\n";
    Install(copy);
    EXPECT_THAT(
        TheFinding("skipped-directory"),
        StartsWith(
            "install.ini:2:11 error [*] \"doc/spool\" matches, but a directory is not copied; "
            "add a \"create\" of its own for it"
        )
    );
    Install("directory=create,$pathTarget$spool");
    EXPECT_FALSE(Finds("skipped-directory"));
}

TEST_F(CopyChecksTest, ASubdirectoryOfLinksNeedsItsCreateOnly) {
    File("doc/readme.txt");
    tree.Directory("kit/doc/links");
    tree.Link("kit/doc/links/readme", "../readme.txt");
    Install("directory=create,$pathTarget$links\nfile=copy,*,$pathSource$doc,$pathTarget$\n"
            "file=symlink,readme.txt,..,$pathTarget$links,readme");
    EXPECT_FALSE(Finds("skipped-directory"));
}

TEST_F(CopyChecksTest, ACreateDoesNotCopyFiles) {
    File("doc/readme.txt");
    File("doc/manual/first/first.txt");
    Install("directory=create,$pathTarget$manual\nfile=copy,*,$pathSource$doc,$pathTarget$");
    EXPECT_TRUE(Finds("skipped-directory"));
}

TEST_F(CopyChecksTest, ASubdirectoryDoesNotMatchTheWildcard) {
    File("doc/readme.txt");
    File("doc/manual/first.txt");
    Install("file=copy,*.txt,$pathSource$doc,$pathTarget$");
    EXPECT_FALSE(Finds("skipped-directory"));
}

TEST_F(CopyChecksTest, AFileIsCopiedOntoItself) {
    Install("file=copy,svc,$pathSourceBinX86_64$,$pathSource$lin/x86_64");
    EXPECT_EQ(
        TheFinding("copy-onto-itself"),
        "install.ini:2:6 error [copy,svc,$pathSourceBinX86_64$,$pathSource$lin/x86_64] "
        "\"lin/x86_64/svc\" is copied onto itself; fix the directory that it comes from, or the "
        "one "
        "that it goes to"
    );
    EXPECT_FALSE(Finds("not-removed")); // what is in the kit was there before
}

TEST_F(CopyChecksTest, FilesOfAWildcardAreCopiedOntoThemselves) {
    Install("file=copy,*,$pathTarget$,/opt/svc/./");
    EXPECT_TRUE(Finds("copy-onto-itself"));
}

TEST_F(CopyChecksTest, ACopyBesideTheFileIsNone) {
    Install("file=copy,svc,$pathTarget$,$pathTarget$,svc.old\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTarget$");
    EXPECT_FALSE(Finds("copy-onto-itself"));
}

TEST_F(CopyChecksTest, ACopyOverwritesTheConfiguration) {
    File("config/svc.ini");
    Install("file=copy,$iniFile$,$pathSource$config,$pathTargetConfig$");
    EXPECT_EQ(
        TheFinding("overwritten-configuration"),
        "install.ini:2:11 warning [$iniFile$] an upgrade with this copy overwrites the "
        "configuration "
        "\"/opt/svc/config/svc.ini\", which may have been edited; give the copy another name, and "
        "make the configuration with profile=put"
    );
}

TEST_F(CopyChecksTest, AWildcardOverwritesTheConfiguration) {
    File("config/svc.ini");
    Install("file=copy,*.ini,$pathSource$config,$pathTargetConfig$");
    EXPECT_TRUE(Finds("overwritten-configuration"));
}

TEST_F(CopyChecksTest, ACopyUnderAnotherNameOverwritesNothing) {
    File("config/svc.ini");
    Install("file=copy,$iniFile$,$pathSource$config,$pathTargetConfig$,$iniFile$.default");
    EXPECT_FALSE(Finds("overwritten-configuration"));
}

} // namespace
