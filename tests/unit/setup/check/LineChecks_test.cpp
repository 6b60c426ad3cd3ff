// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

using KTEST::ScriptLine;
using LineChecksTest = KTEST::GivenKit;

TEST_F(LineChecksTest, ASoundKitHasNoFinding) {
    EXPECT_THAT(Check().findings, IsEmpty());
}

TEST_F(LineChecksTest, ATypeInTheWrongCaseIsUnknown) {
    Install("  File=copy,svc,$pathSourceBinX86_64$,$pathTarget$");
    EXPECT_EQ(
        TheFinding("unknown-type"),
        "install.ini:2:3 error [File] unknown rule type \"File\"; write \"file\""
    );
}

TEST_F(LineChecksTest, ATypeThatNobodyKnowsIsUnknown) {
    Install("registry=put,a");
    EXPECT_THAT(
        TheFinding("unknown-type"),
        EndsWith(
            "write \"file\", \"directory\", \"section\", \"process\", \"service\", \"profile\", "
            "\"config\", \"link\", \"mode\", \"user\", \"command\" or \"entry\""
        )
    );
}

TEST_F(LineChecksTest, AHeaderWithACommentIsNoHeader) {
    Install("[more] ; for later");
    EXPECT_EQ(
        TheFinding("unknown-type"),
        "install.ini:2:1 error [[more] ; for later] \"[more] ; for later\" is no section header "
        "and "
        "no rule; write the header alone in its line, as \"[install]\""
    );
}

TEST_F(LineChecksTest, TypesInLowerCaseAndCommentsAreKnown) {
    Install("; File=copy\n#File=copy\nfile=delete,old,$pathTarget$\nsection=more");
    Sections("[more]\nservice=stop,svc");
    EXPECT_FALSE(Finds("unknown-type"));
}

TEST_F(LineChecksTest, ASectionThatNothingLoadsMayHoldAnything) {
    Sections("[notes]\nauthor=somebody");
    EXPECT_THAT(Check().findings, IsEmpty());
}

TEST_F(LineChecksTest, SectionsOfTheOtherArchitectureAreChecked) {
    Sections("[install.x86]\nFile=copy\n[install.x86_64]\nFile=copy");
    EXPECT_THAT(
        Findings("unknown-type"),
        ElementsAre(StartsWith("install.ini:19:1"), StartsWith("install.ini:21:1"))
    );
}

TEST_F(LineChecksTest, SectionsForOtherVersionsAreChecked) {
    Install("section=news.$verInfo$");
    Sections("[news.9.9]\nFile=copy");
    EXPECT_THAT(TheFinding("unknown-type"), StartsWith("install.ini:20:1"));
}

TEST_F(LineChecksTest, AFileRuleWithTwoFieldsIsTooShort) {
    Install("file=delete,old");
    EXPECT_EQ(
        TheFinding("field-count"),
        "install.ini:2:6 error [delete,old] a file rule cannot have 2 fields; write "
        "file=copy,NAME,FROM,TO[,NEWNAME], file=delete,NAME,FROM or "
        "file=symlink,NAME,FROM,TO[,NEWNAME]"
    );
}

using WrongCountTest = KTEST::GivenKitWithLine;
TEST_P(WrongCountTest, IsAFinding) {
    Install(GetParam().line);
    EXPECT_THAT(TheFinding("field-count"), StartsWith("install.ini:2:"));
}
INSTANTIATE_TEST_SUITE_P(
    Lines,
    WrongCountTest,
    ::testing::Values(
        ScriptLine{"FileOfSix", "file=copy,a,b,c,d,e"},
        ScriptLine{"DirectoryOfThree", "directory=create,/opt/svc,0755"},
        ScriptLine{"CommandWithAComma", "process=start,echo a,b"},
        ScriptLine{"ServiceOfThree", "service=install,svc,Service"},
        ScriptLine{"ProfileOfThree", "profile=put,/a,S"},
        ScriptLine{"CreateOfFour", "profile=create,/a,b,c"},
        ScriptLine{"RemoveFileOfTwo", "profile=remove_file,/a"},
        ScriptLine{"RemoveFileOfFive", "profile=remove_file,/a,S,K,V"}
    ),
    KTEST::NameOfRow()
);

using RightCountTest = KTEST::GivenKitWithLine;
TEST_P(RightCountTest, IsNone) {
    Install(GetParam().line);
    EXPECT_FALSE(Finds("field-count"));
}
INSTANTIATE_TEST_SUITE_P(
    Lines,
    RightCountTest,
    ::testing::Values(
        ScriptLine{"FileOfThree", "file=delete,a,/b"},
        ScriptLine{"FileOfFive", "file=copy,a,b,c,d"},
        ScriptLine{"DirectoryOfTwo", "directory=create,/opt/svc"},
        ScriptLine{"SectionWithAComma", "section=a,b,c"},
        ScriptLine{"CommandOfTwo", "process=start,echo a"},
        ScriptLine{"ServiceOfTwo", "service=start,svc"},
        ScriptLine{"ServiceOfFive", "service=install,svc,Service,/bin/true,-x"},
        ScriptLine{"ProfileOfFive", "profile=put,/a,S,K,V"},
        ScriptLine{"RemoveFileOfFour", "profile=remove_file,/a,S,T"},
        ScriptLine{"ProfileOfTwo", "profile=create,/a"}
    ),
    KTEST::NameOfRow()
);

TEST_F(LineChecksTest, AMisspeltFileOperationIsIgnored) {
    Install("file=Copy,svc,$pathSourceBinX86_64$,$pathTarget$");
    EXPECT_EQ(
        TheFinding("ignored-operation"),
        "install.ini:2:6 error [Copy] unknown operation \"Copy\" of file, which does nothing; "
        "write "
        "\"copy\""
    );
    EXPECT_FALSE(Finds("failing-operation"));
}

TEST_F(LineChecksTest, AMisspeltProcessActionIsIgnored) {
    Install("process=Start,true");
    EXPECT_THAT(
        TheFinding("ignored-operation"), HasSubstr("\"Start\" of process, which does nothing")
    );
}

TEST_F(LineChecksTest, ADirectoryIsNotRemovedByRemove) {
    Install("directory=remove,/opt/svc");
    EXPECT_THAT(TheFinding("ignored-operation"), EndsWith("write \"create\" or \"delete\""));
}

TEST_F(LineChecksTest, DirectoriesIgnoreCase) {
    Install("directory=Create,/opt/svc");
    EXPECT_FALSE(Finds("ignored-operation"));
}

TEST_F(LineChecksTest, AServiceIsNotRestarted) {
    Install("service=restart,svc");
    EXPECT_EQ(
        TheFinding("failing-operation"),
        "install.ini:2:9 error [restart] unknown operation \"restart\" of service, which fails; "
        "write a \"stop\", and a \"start\" behind it"
    );
    EXPECT_FALSE(Finds("ignored-operation"));
}

TEST_F(LineChecksTest, AnUnknownProfileOperationFails) {
    Install("profile=set,/a,S,K,V");
    EXPECT_THAT(TheFinding("failing-operation"), HasSubstr("\"set\" of profile, which fails"));
}

TEST_F(LineChecksTest, ServicesAndProfilesIgnoreCase) {
    Install("service=Stop,svc\nprofile=PUT,$pathTargetConfig$$iniFile$,S,K,V");
    EXPECT_FALSE(Finds("failing-operation"));
}

TEST_F(LineChecksTest, AnEmptyFieldDoesNotCount) {
    Install("file=copy,svc,,$pathSourceBinX86_64$,$pathTarget$");
    EXPECT_EQ(
        TheFinding("empty-field"),
        "install.ini:2:15 error [] field 3 is empty and does not count, so those behind it move "
        "up; "
        "fill it, or take the comma out"
    );
}

TEST_F(LineChecksTest, AFieldThatIsAMacroWithoutAValueIsEmpty) {
    Install("directory=create,$binext$");
    EXPECT_EQ(
        TheFinding("empty-field"),
        "install.ini:2:18 error [$binext$] field 2 is empty, for \"$binext$\" has no value; write "
        "something beside the macro, or take the field out"
    );
}

TEST_F(LineChecksTest, AMacroWithoutAValueBesideTextIsNotEmpty) {
    Install("file=delete,old$binext$,$pathTarget$");
    EXPECT_FALSE(Finds("empty-field"));
}

TEST_F(LineChecksTest, BehindACommaAtTheEndNothingMovesUp) {
    Install("directory=create,$pathTarget$,\nfile=delete,old,$pathTarget$,,\nprocess=start,true,");
    EXPECT_FALSE(Finds("empty-field"));
}

TEST_F(LineChecksTest, ASectionLineWithoutANameIsEmpty) {
    Install("section=");
    EXPECT_THAT(TheFinding("empty-field"), StartsWith("install.ini:2:9 error [] field 1 is empty"));
}

TEST_F(LineChecksTest, APutWithTwoFieldsWritesAnEmptyKey) {
    Install("profile=put,$pathTargetConfig$$iniFile$");
    EXPECT_EQ(
        TheFinding("empty-key"),
        "install.ini:2:9 error [put] a \"put\" with 2 fields writes an empty key; write "
        "profile=put,FILE,SECTION,KEY,VALUE"
    );
}

TEST_F(LineChecksTest, APutWithFourFieldsWritesAnEmptyKey) {
    Install("profile=Put,$pathTargetConfig$$iniFile$,S,K,");
    EXPECT_THAT(TheFinding("empty-key"), StartsWith("install.ini:2:9 error [Put]"));
}

TEST_F(LineChecksTest, APutWithABlankKeyWritesAnEmptyKey) {
    Install("profile=put,$pathTargetConfig$$iniFile$,S, ,V");
    EXPECT_THAT(TheFinding("empty-key"), StartsWith("install.ini:2:43 error [ ] this \"put\""));
}

TEST_F(LineChecksTest, APutWithFiveFieldsHasItsKey) {
    Install("profile=put,$pathTargetConfig$$iniFile$,S,K,V\nprofile=create,/opt/svc/a");
    EXPECT_FALSE(Finds("empty-key"));
}

TEST_F(LineChecksTest, AMisspeltDefaultPathProposesNothing) {
    Install("defaultPath.lin=/opt/svc");
    EXPECT_EQ(
        TheFinding("default-path"),
        "install.ini:2:1 error [defaultPath.lin] \"defaultPath.lin\" does not propose the product "
        "path; write \"defaultPath.$os$\", dollars and all"
    );
    EXPECT_FALSE(Finds("unknown-type"));
}

TEST_F(LineChecksTest, ADefaultPathElsewhereIsNotLookedFor) {
    Remove("defaultPath.$os$=/opt/svc");
    EXPECT_THAT(
        TheFinding("default-path"), EndsWith("section [remove]; put it into section [install]")
    );
}

TEST_F(LineChecksTest, TheDefaultPathInInstallIsRight) {
    EXPECT_FALSE(Finds("default-path"));
}

TEST_F(LineChecksTest, ABlankAfterACommaIsAPartOfTheField) {
    Install("file=delete, old,$pathTarget$");
    EXPECT_EQ(
        TheFinding("blank-after-comma"),
        "install.ini:2:13 warning [ old] the blank after the comma is a part of the field; take it "
        "out"
    );
}

TEST_F(LineChecksTest, ABlankWithinAFieldIsNone) {
    Install("file=delete,old file,$pathTarget$");
    EXPECT_FALSE(Finds("blank-after-comma"));
}

TEST_F(LineChecksTest, ACopyWithThreeFieldsGoesToTheRoot) {
    Install("file=copy,svc,$pathSourceBinX86_64$");
    EXPECT_EQ(
        TheFinding("copy-to-root"),
        "install.ini:2:6 warning [copy,svc,$pathSourceBinX86_64$] a copy with three fields has "
        "\"/\" for its target; add the directory it goes to, which is \"/\" if that is meant"
    );
}

TEST_F(LineChecksTest, ADeletionWithThreeFieldsHasNoTarget) {
    Install("file=delete,old,$pathTarget$");
    EXPECT_FALSE(Finds("copy-to-root"));
}

} // namespace
