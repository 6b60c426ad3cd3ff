// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <sup++/KString.h>
#include <sup++/SvcData.h>

#include <gmock/gmock.h>

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using IncludeChecksTest = KTEST::GivenKit;

TEST_F(IncludeChecksTest, ASectionThatIncludesItselfIsACycle) {
    Install("section=a");
    Sections("[a]\nsection=b\n[b]\nsection=a");
    EXPECT_EQ(
        TheFinding("include-cycle"),
        "install.ini:22:9 error [a] section [a] includes itself and never ends: [a] -> [b] -> [a]; "
        "take this line out, or move what both need to a section of its own"
    );
    EXPECT_TRUE(Check().hasCycle);
}

TEST_F(IncludeChecksTest, ACycleMayGoThroughAMacro) {
    Install("section=part-$os$");
    Sections("[part-lin]\nsection=$os$tall\n[lintall]\nsection=part-$os$");
    EXPECT_THAT(TheFinding("include-cycle"), HasSubstr("[part-lin] -> [lintall] -> [part-lin]"));
}

TEST_F(IncludeChecksTest, ACycleMayGoThroughTheSectionOfAnArchitecture) {
    Install("section=a");
    Sections("[a.x86_64]\nsection=a\n[a.x86]\nsection=b-$arch$\n[b-x86]\nsection=a");
    EXPECT_THAT(
        Findings("include-cycle"),
        ::testing::ElementsAre(
            AllOf(StartsWith("install.ini:20:9"), HasSubstr("[a] -> [a]")),
            AllOf(StartsWith("install.ini:24:9"), HasSubstr("[a] -> [b-x86] -> [a]"))
        )
    );
}

TEST_F(IncludeChecksTest, ACycleOfTheOtherArchitectureIsNoBetter) {
    const std::string here = KSUP::KString(SvcGetGlobalDataEx()->architecture).c_str();
    Install("section=a");
    Sections(std::string("[a.") + (here == "x86" ? "x86_64" : "x86") + "]\nsection=a");
    EXPECT_TRUE(Finds("include-cycle"));
    EXPECT_TRUE(Check().hasCycle);
}

TEST_F(IncludeChecksTest, ASectionThatIsIncludedTwiceIsNoCycle) {
    Install("section=a\nsection=a\nsection=b");
    Sections("[a]\ndirectory=create,/opt/svc\n[b]\nsection=a");
    EXPECT_FALSE(Finds("include-cycle"));
    EXPECT_FALSE(Check().hasCycle);
}

TEST_F(IncludeChecksTest, AMissingSectionIncludesNothing) {
    Install("section=dokuments");
    Sections("[documents]");
    EXPECT_EQ(
        TheFinding("missing-section"),
        "install.ini:2:9 error [dokuments] there is no section [dokuments], so nothing is "
        "included; "
        "write \"documents\", or add the section"
    );
}

TEST_F(IncludeChecksTest, AMissingSectionThatIsLikeNoneIsToBeAdded) {
    Install("section=library");
    EXPECT_THAT(TheFinding("missing-section"), EndsWith("or name one of [install], [remove]"));
}

TEST_F(IncludeChecksTest, ANameWithAMacroIsExpandedFirst) {
    Install("section=part-$os$");
    EXPECT_THAT(TheFinding("missing-section"), HasSubstr("there is no section [part-lin]"));
    Sections("[part-lin]");
    EXPECT_FALSE(Finds("missing-section"));
}

TEST_F(IncludeChecksTest, ASectionForAnArchitectureAloneIsThere) {
    Install("section=programs");
    Sections("[programs.x86_64]");
    EXPECT_FALSE(Finds("missing-section"));
}

TEST_F(IncludeChecksTest, ASectionForAnotherVersionIsEnough) {
    Install("section=outdated.$verInfo$");
    EXPECT_TRUE(Finds("missing-section"));
    Sections("[outdated.9.9]");
    EXPECT_FALSE(Finds("missing-section"));
}

TEST_F(IncludeChecksTest, ASectionForAnotherSystemIsNotEnough) {
    Install("section=part-$os$");
    Sections("[part-win]");
    EXPECT_TRUE(Finds("missing-section"));
}

TEST_F(IncludeChecksTest, ASectionThatNothingLoadsIsTold) {
    Sections("[install.x64]\nfile=delete,a,$pathTarget$");
    EXPECT_THAT(
        TheFinding("unloaded-section"),
        ::testing::AllOf(
            ::testing::HasSubstr(
                "warning [[install.x64]] nothing loads section [install.x64], so its "
                "lines do nothing; write \"[install.x86_64]\", or include it"
            ),
            ::testing::StartsWith("install.ini:18:1")
        )
    );
}

TEST_F(IncludeChecksTest, ASectionWithoutItsIncludeIsTold) {
    Sections("[documents]\nfile=delete,a,$pathTarget$");
    EXPECT_THAT(
        TheFinding("unloaded-section"),
        ::testing::HasSubstr("; include it by section=documents where its lines belong")
    );
}

TEST_F(IncludeChecksTest, SectionsForOtherMachinesAndVersionsAndEmptyOnesAreNone) {
    Install("section=news.$verInfo$");
    Sections(
        "[install.aarch64]\nfile=delete,a,$pathTarget$\n[install.x86]\nfile=delete,a,$pathTarget$\n"
        "[news.9.9]\nfile=delete,a,$pathTarget$\n[files]\n; nothing\n[notes]\nauthor=somebody"
    );
    EXPECT_FALSE(Finds("unloaded-section"));
}

} // namespace
