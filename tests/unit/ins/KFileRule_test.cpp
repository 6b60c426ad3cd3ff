// SPDX-License-Identifier: MIT
//
// Above 500 lines: the operations of this rule are tables of many rows, and share one fixture.
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/NameOfRow.h"
#include "../../support/SlotOf.h"
#include "Injected.h"

#include <ins/KFileRule.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <type_traits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using KINS::KFileRule;
using KTEST::ArbitraryBytes;
using KTEST::ErrorOf;
using KTEST::Place;
using KTEST::StatusRecorder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class KFileRuleTest : public KTEST::RuleTest {
  protected:
    KFileRuleTest() {
        tree.Directory("src");
        tree.Directory("dst");
    }
    std::string Copying(const char* relative) const {
        return "- Copying file " + tree.Path(relative);
    }
    std::string Deleting(const char* relative) const {
        return "- Deleting file " + tree.Path(relative);
    }
    KSUP::KError FailureOf(std::string_view line) {
        return ErrorOf([&] { Run("file", line); });
    }
};

// The class

TEST_F(KFileRuleTest, OverridesInTheSlotsOfItsBase) {
    using KTEST::SlotOf;
    EXPECT_EQ(SlotOf(&KFileRule::Execute), 2);
    EXPECT_EQ(SlotOf(&KFileRule::Description), 4);
    EXPECT_EQ(SlotOf(&KFileRule::ParseRule), 6);
    EXPECT_EQ(KTEST::notVirtual, SlotOf(&KFileRule::CopyFile));
    EXPECT_EQ(KTEST::notVirtual, SlotOf(&KFileRule::CopyWildcard));
    EXPECT_EQ(KTEST::notVirtual, SlotOf(&KFileRule::DeleteFile));
    EXPECT_EQ(KTEST::notVirtual, SlotOf(&KFileRule::DeleteWildcard));
    EXPECT_EQ(KTEST::notVirtual, SlotOf(&KFileRule::UpdateStatus));
}

TEST_F(KFileRuleTest, IsAnInstallRuleThatCounts) {
    KFileRule rule(&manager, "copy,a,b,c");
    EXPECT_STREQ(rule.GetClassTag(), "KInstallRule");
    EXPECT_TRUE(rule.ShouldCount());
    EXPECT_FALSE(std::is_copy_constructible_v<KFileRule>);
    EXPECT_FALSE(std::is_copy_assignable_v<KFileRule>);
}

TEST_F(KFileRuleTest, ConstructingParsesNothing) {
    KFileRule rule(&manager, "copy");
    EXPECT_STREQ(rule.Description().c_str(), "File  / to ");
    EXPECT_EQ(ErrorOf([&] { rule.Initialize(); }).GetCode(), 7000U);
}

// Parsing

struct RefusedFileLine {
    const char* name;
    const char* line;
};

class KFileRuleRefusalTest : public KTEST::RuleTest,
                             public ::testing::WithParamInterface<RefusedFileLine> {};

TEST_P(KFileRuleRefusalTest, IsError7000WithTheLineAndNoRule) {
    const std::string line = GetParam().line;
    const KSUP::KError error = RefusalOf("file", line);
    EXPECT_EQ("48 7000.0 ins/KFileRule:175 ParseRule \"" + line + "\"", Place(error));
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
    EXPECT_EQ(manager.GetRuleCount(), 0U);
    EXPECT_THAT(Added(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    ALineWith,
    KFileRuleRefusalTest,
    ::testing::Values(
        RefusedFileLine{"OneField", "copy"},
        RefusedFileLine{"TwoFields", "copy,a"},
        RefusedFileLine{"SixFields", "copy,a,b,c,d,e"},
        RefusedFileLine{"ThreeFieldsOfWhichOneIsEmpty", "copy,,b"},
        RefusedFileLine{"UnexpandedMacros", "copy,$os$"},
        RefusedFileLine{"CommasOnly", ",,,,"}
    ),
    KTEST::NameOfRow()
);

TEST_F(KFileRuleTest, AnEmptyLineIsError7000WithAnEmptyText) {
    EXPECT_EQ(Place(RefusalOf("file", "")), "48 7000.0 ins/KFileRule:175 ParseRule \"\"");
}

struct DescribedFileLine {
    const char* name;
    const char* line;
    const char* description;
};

class KFileRuleDescriptionTest : public KTEST::RuleTest,
                                 public ::testing::WithParamInterface<DescribedFileLine> {};

TEST_P(KFileRuleDescriptionTest, NamesOperationSourceAndTargetDirectory) {
    EXPECT_EQ(DescriptionOf("file", GetParam().line), GetParam().description);
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    KFileRuleDescriptionTest,
    ::testing::Values(
        DescribedFileLine{"ACopy", "copy,a.so,/s/lib,/t/lib", "File copy /s/lib/a.so to /t/lib"},
        DescribedFileLine{
            "ACopyUnderAnotherNameLeavesItOut", "copy,a,/s,/t,b", "File copy /s/a to /t"},
        DescribedFileLine{"ADelete", "delete,a,/s", "File delete /s/a to "},
        DescribedFileLine{"ALink", "symlink,a,/s/,/t/,l", "File symlink /s/a to /t/"},
        DescribedFileLine{"AnUnknownOperation", "Copy,a,/s,/t", "File Copy /s/a to /t"},
        DescribedFileLine{"AnOperationWithAMacroLeavesIt", "$os$,a,/s,/t", "File $os$ /s/a to /t"},
        DescribedFileLine{
            "FieldsWithMacrosExpandsThem",
            "copy,$os$,/s/$os$,/t/$os$",
            "File copy /s/lin/lin to /t/lin"},
        DescribedFileLine{"AWildcard", "copy,*.s?,/s,/t", "File copy /s/*.s? to /t"}
    ),
    KTEST::NameOfRow()
);

TEST_F(KFileRuleTest, AFieldIsExpandedOnce) {
    world.GivenKey("fileOnce", "$os$");
    EXPECT_EQ(
        DescriptionOf("file", "copy,$fileOnce$,/s,/t/$fileOnce$"), "File copy /s/$os$ to /t/$os$"
    );
}

TEST_F(KFileRuleTest, ACommaInAMacroDoesNotSplitAField) {
    world.GivenKey("fileComma", "a,b,c,d,e");
    EXPECT_EQ(DescriptionOf("file", "delete,$fileComma$,/s"), "File delete /s/a,b,c,d,e to ");
}

TEST_F(KFileRuleTest, FieldsAreExpandedWhenTheLineIsParsedAndNotBefore) {
    world.GivenKey("fileWhen", "constructed");
    KFileRule rule(&manager, "delete,$fileWhen$,/s");
    world.GivenKey("fileWhen", "parsed");
    rule.Initialize();
    world.GivenKey("fileWhen", "executed");
    EXPECT_STREQ(rule.Description().c_str(), "File delete /s/parsed to ");
}

// Copying one file

TEST_F(KFileRuleTest, ACopyKeepsTheNameWhenNoneIsGiven) {
    tree.Write("src/libcore.so", "core");
    Run("file", "copy,libcore.so,@T@/src,@T@/dst");
    EXPECT_THAT(tree.List("dst"), ElementsAre("f 0644 libcore.so \"core\""));
}

TEST_F(KFileRuleTest, ACopyTakesTheNameOfTheFifthField) {
    tree.Write("src/app.conf", "a=1");
    Run("file", "copy,app.conf,@T@/src,@T@/dst,app.conf.new");
    EXPECT_THAT(tree.List("dst"), ElementsAre("f 0644 app.conf.new \"a=1\""));
}

TEST_F(KFileRuleTest, DirectoriesMayEndInASeparator) {
    tree.Write("src/a", "x");
    Run("file", "copy,a,@T@/src/,@T@/dst/");
    EXPECT_THAT(tree.List("dst"), ElementsAre("f 0644 a \"x\""));
    EXPECT_THAT(
        statuses.Lines(), ElementsAre(Copying("dst/a"), "100 Copying file a", "100 Copying file a")
    );
}

TEST_F(KFileRuleTest, ACopyReportsEveryChunkOf65536BytesAndTheEndOnceMore) {
    tree.Write("src/big", ArbitraryBytes(200000));
    Run("file", "copy,big,@T@/src,@T@/dst,renamed");
    const double length = 200000.0;
    EXPECT_THAT(
        statuses.All(),
        ElementsAre(
            StatusRecorder::Status{"Copying file " + tree.Path("dst/renamed"), 4294967295.0},
            StatusRecorder::Status{"Copying file big", 65536.0 / length * 100.0},
            StatusRecorder::Status{"Copying file big", 131072.0 / length * 100.0},
            StatusRecorder::Status{"Copying file big", 196608.0 / length * 100.0},
            StatusRecorder::Status{"Copying file big", 100.0},
            StatusRecorder::Status{"Copying file big", 100.0}
        )
    );
    EXPECT_EQ(
        (std::vector<std::string>{
            Copying("dst/renamed"),
            "32.768 Copying file big",
            "65.536 Copying file big",
            "98.304 Copying file big",
            "100 Copying file big",
            "100 Copying file big"}),
        statuses.Lines()
    );
    EXPECT_EQ(ArbitraryBytes(200000), tree.Read("dst/renamed"));
}

struct CopiedLength {
    const char* name;
    std::size_t bytes;
    std::vector<std::string> percentages;
};

class KFileRuleLengthTest : public KFileRuleTest,
                            public ::testing::WithParamInterface<CopiedLength> {};

TEST_P(KFileRuleLengthTest, IsCopiedWholeWithItsReports) {
    tree.Write("src/a", ArbitraryBytes(GetParam().bytes));
    Run("file", "copy,a,@T@/src,@T@/dst");
    std::vector<std::string> expected{Copying("dst/a")};
    for (const std::string& percentage : GetParam().percentages) {
        expected.push_back(percentage + " Copying file a");
    }
    EXPECT_EQ(statuses.Lines(), expected);
    EXPECT_EQ(tree.List("src"), tree.List("dst"));
}

INSTANTIATE_TEST_SUITE_P(
    AFileOf,
    KFileRuleLengthTest,
    ::testing::Values(
        CopiedLength{"NoBytes", 0, {"100"}},
        CopiedLength{"OneByte", 1, {"100", "100"}},
        CopiedLength{"OneByteLessThanAChunk", 65535, {"100", "100"}},
        CopiedLength{"OneChunk", 65536, {"100", "100"}},
        CopiedLength{"OneByteMoreThanAChunk", 65537, {"99.9985", "100", "100"}},
        CopiedLength{"TwoChunks", 131072, {"50", "100", "100"}}
    ),
    KTEST::NameOfRow()
);

TEST_F(KFileRuleTest, TheStoredStatusCarriesThePercentageRaised) {
    tree.Write("src/libcore.so", ArbitraryBytes(200000));
    std::string stored;
    statuses.At(3, [&] { stored = manager.GetCurrentRuleStatus().c_str(); });
    Run("file", "copy,libcore.so,@T@/src,@T@/dst");
    EXPECT_EQ(stored, "Copying file libcore.so (33%)");
    EXPECT_STREQ(manager.GetCurrentRuleStatus().c_str(), "Copying file libcore.so (100%)");
}

TEST_F(KFileRuleTest, APercentageIsDividedBeforeItIsMultiplied) {
    // The other order gives 65.53010229079383 for this length.
    tree.Write("src/a", ArbitraryBytes(100009));
    Run("file", "copy,a,@T@/src,@T@/dst");
    EXPECT_EQ(statuses.All().at(1).value, 65.53010229079382);
}

TEST_F(KFileRuleTest, ProgressNamesAFileByItsLastComponent) {
    KFileRule(&manager, "").UpdateStatus("/a/b/libcore.so", 42.1);
    EXPECT_THAT(statuses.Lines(), ElementsAre("42.1 Copying file libcore.so"));
    EXPECT_STREQ(manager.GetCurrentRuleStatus().c_str(), "Copying file libcore.so (43%)");
}

struct CopiedMode {
    const char* name;
    mode_t mode;
};

class KFileRuleModeTest : public KFileRuleTest, public ::testing::WithParamInterface<CopiedMode> {};

TEST_P(KFileRuleModeTest, IsCarriedToTheCopyWhateverTheUmask) {
    tree.Write("src/a", "x", GetParam().mode);
    tree.Write("dst/a", "older", 0604);
    const mode_t before = ::umask(077);
    Run("file", "copy,a,@T@/src,@T@/dst");
    ::umask(before);
    EXPECT_EQ(tree.Mode("dst/a"), GetParam().mode);
    EXPECT_EQ(tree.Read("dst/a"), "x");
}

INSTANTIATE_TEST_SUITE_P(
    Mode,
    KFileRuleModeTest,
    ::testing::Values(
        CopiedMode{"ReadableByAll", 0644},
        CopiedMode{"Executable", 0755},
        CopiedMode{"Private", 0600},
        CopiedMode{"ReadOnly", 0444},
        CopiedMode{"WritableByAll", 0666},
        CopiedMode{"SetUser", 04755},
        CopiedMode{"SetGroup", 02755},
        CopiedMode{"Sticky", 01644}
    ),
    KTEST::NameOfRow()
);

TEST_F(KFileRuleTest, AnEmptyFileCarriesItsModeToo) {
    tree.Write("src/a", "", 0751);
    Run("file", "copy,a,@T@/src,@T@/dst");
    EXPECT_THAT(tree.List("dst"), ElementsAre("f 0751 a \"\""));
}

TEST_F(KFileRuleTest, ACopyReplacesWhatStoodThereAndLeavesItsOtherNamesAlone) {
    tree.Write("src/a", "new");
    tree.Write("dst/a", "old and longer");
    ASSERT_EQ(::link(tree.Path("dst/a").c_str(), tree.Path("other").c_str()), 0);
    Run("file", "copy,a,@T@/src,@T@/dst");
    EXPECT_EQ(tree.Read("dst/a"), "new");
    EXPECT_EQ(tree.Read("other"), "old and longer");
}

TEST_F(KFileRuleTest, ACopyKeepsTheOwnerOfTheFileItReplaces) {
    tree.Write("src/a", "new");
    tree.Write("dst/a", "old");
    tree.SetOwner("dst/a", 1234, 4321);
    Run("file", "copy,a,@T@/src,@T@/dst");
    EXPECT_EQ(tree.Status("dst/a").st_uid, 1234U);
    EXPECT_EQ(tree.Status("dst/a").st_gid, 4321U);
}

TEST_F(KFileRuleTest, AFileCopiedOntoItselfKeepsItsContents) {
    tree.Write("src/a", ArbitraryBytes(100000), 0751);
    Run("file", "copy,a,@T@/src,@T@/src");
    EXPECT_EQ(ArbitraryBytes(100000), tree.Read("src/a"));
    EXPECT_EQ(tree.Mode("src/a"), 0751U);
}

TEST_F(KFileRuleTest, ASourceLinkIsFollowed) {
    tree.Write("elsewhere/real", "real", 0751);
    tree.Link("src/a", "../elsewhere/real");
    Run("file", "copy,a,@T@/src,@T@/dst");
    EXPECT_THAT(tree.List("dst"), ElementsAre("f 0751 a \"real\""));
}

TEST_F(KFileRuleTest, WithThreeFieldsTheTargetIsTheRootDirectory) {
    // The source is missing on purpose: nothing may be written there.
    const KSUP::KError error = FailureOf("copy,inspp-no-such-file,@T@/src");
    EXPECT_EQ(error.GetCode(), static_cast<unsigned>(ENOENT));
    EXPECT_THAT(statuses.Lines(), ElementsAre("- Copying file /inspp-no-such-file"));
}

TEST_F(KFileRuleTest, NamesOfAnyBytesAreCopied) {
    const std::string name = "new\nline \xff\xfe $ ' \"";
    tree.Write("src/" + name, "x");
    world.GivenKey("oddName", "*");
    Run("file", "copy,$oddName$,@T@/src,@T@/dst");
    EXPECT_EQ(tree.Read("dst/" + name), "x");
}

// Copying that fails

struct FailingCopy {
    const char* name;
    void (*prepare)(KTEST::TemporaryTree&);
    int code;
    const char* path; ///< named by the error
};

class KFileRuleFailureTest : public KFileRuleTest,
                             public ::testing::WithParamInterface<FailingCopy> {};

TEST_P(KFileRuleFailureTest, EndsTheCopyWithTheSystemsErrorAndThePath) {
    GetParam().prepare(tree);
    const KSUP::KError error = FailureOf("copy,a,@T@/src,@T@/dst");
    EXPECT_EQ(static_cast<unsigned>(GetParam().code), error.GetCode());
    EXPECT_THAT(error.GetInfo().GetString().c_str(), HasSubstr(tree.Path(GetParam().path) + ": "));
    EXPECT_THAT(statuses.Lines(), ElementsAre(Copying("dst/a")));
    EXPECT_EQ(manager.GetCompletedCount(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    ASituation,
    KFileRuleFailureTest,
    ::testing::Values(
        FailingCopy{"SourceMissing", [](KTEST::TemporaryTree&) {}, ENOENT, "src/a"},
        FailingCopy{
            "SourceIsADanglingLink",
            [](KTEST::TemporaryTree& of) { of.Link("src/a", "gone"); },
            ENOENT,
            "src/a"},
        FailingCopy{
            "SourceIsALoopOfLinks",
            [](KTEST::TemporaryTree& of) { of.Link("src/a", "a"); },
            ELOOP,
            "src/a"},
        FailingCopy{
            "TargetDirectoryMissing",
            [](KTEST::TemporaryTree& of) {
                of.Write("src/a", "x");
                of.Remove("dst");
            },
            ENOENT,
            "dst/a"},
        FailingCopy{
            "TargetDirectoryIsAFile",
            [](KTEST::TemporaryTree& of) {
                of.Write("src/a", "x");
                of.Remove("dst");
                of.Write("dst", "");
            },
            ENOTDIR,
            "dst/a"},
        FailingCopy{
            "TargetIsADirectory",
            [](KTEST::TemporaryTree& of) {
                of.Write("src/a", "x");
                of.Directory("dst/a");
            },
            EISDIR,
            "dst/a"}
    ),
    KTEST::NameOfRow()
);

struct IrregularSource {
    const char* name;
    void (*prepare)(KTEST::TemporaryTree&);
};

class KFileRuleIrregularTest : public KFileRuleTest,
                               public ::testing::WithParamInterface<IrregularSource> {};

TEST_P(KFileRuleIrregularTest, IsRefusedAtOnceAndMakesNoTarget) {
    GetParam().prepare(tree);
    const KSUP::KError error = FailureOf("copy,a,@T@/src,@T@/dst");
    EXPECT_NE(error.GetCode(), 0U);
    EXPECT_THAT(error.GetInfo().GetString().c_str(), HasSubstr(tree.Path("src/a")));
    EXPECT_THAT(tree.List("dst"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    ASourceThatIs,
    KFileRuleIrregularTest,
    ::testing::Values(
        IrregularSource{"ADirectory", [](KTEST::TemporaryTree& of) { of.Directory("src/a"); }},
        IrregularSource{"AFifo", [](KTEST::TemporaryTree& of) { of.Fifo("src/a"); }},
        IrregularSource{"ASocket", [](KTEST::TemporaryTree& of) { of.Socket("src/a"); }},
        IrregularSource{
            "ALinkToADevice", [](KTEST::TemporaryTree& of) { of.Link("src/a", "/dev/zero"); }}
    ),
    KTEST::NameOfRow()
);

TEST_F(KFileRuleTest, ATargetThatIsAFifoIsRefusedAndStays) {
    tree.Write("src/a", "x");
    tree.Fifo("dst/a");
    FailureOf("copy,a,@T@/src,@T@/dst");
    EXPECT_THAT(tree.List("dst"), ElementsAre("p 0644 a"));
}

TEST_F(KFileRuleTest, ATargetDirectoryBehindAStrangersLinkIsRefused) {
    tree.Write("src/a", "x");
    tree.Directory("real");
    tree.Directory("open", 0777);
    tree.Link("open/way", "../real");
    EXPECT_EQ(FailureOf("copy,a,@T@/src,@T@/open/way").GetCode(), static_cast<unsigned>(ELOOP));
    EXPECT_THAT(tree.List("real"), IsEmpty());
}

TEST_F(KFileRuleTest, ATargetDirectoryBehindALinkOfRootsIsFollowed) {
    tree.Write("src/a", "x");
    tree.Directory("real");
    tree.Link("way", "real");
    Run("file", "copy,a,@T@/src,@T@/way");
    EXPECT_EQ(tree.Read("real/a"), "x");
}

TEST_F(KFileRuleTest, ASourceThatShrinksIsAnErrorAndItsPartStays) {
    tree.Write("src/a", ArbitraryBytes(200000));
    statuses.At(2, [&] { ASSERT_EQ(::truncate(tree.Path("src/a").c_str(), 70000), 0); });
    const KSUP::KError error = FailureOf("copy,a,@T@/src,@T@/dst");
    EXPECT_EQ(error.GetCode(), static_cast<unsigned>(EIO));
    EXPECT_THAT(error.GetInfo().GetString().c_str(), HasSubstr(tree.Path("src/a")));
    EXPECT_TRUE(tree.Exists("dst/a"));
}

TEST_F(KFileRuleTest, ASourceThatGrowsIsCopiedAsLongAsItWas) {
    tree.Write("src/a", ArbitraryBytes(100000));
    statuses.At(2, [&] {
        const int file = ::open(tree.Path("src/a").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        ASSERT_EQ(::write(file, "more", 4), 4);
        ::close(file);
    });
    Run("file", "copy,a,@T@/src,@T@/dst");
    EXPECT_EQ(ArbitraryBytes(100000), tree.Read("dst/a"));
}

// Cancelling a copy

TEST_F(KFileRuleTest, ACancelledCopyIsReportedAt100AndDeletedWithoutAnError) {
    tree.Write("src/a", ArbitraryBytes(200000));
    statuses.At(3, [&] { installer->Stop(); });
    KFileRule rule(&manager, InTree("copy,a,@T@/src,@T@/dst"));
    rule.Initialize();
    EXPECT_NO_THROW(rule.Execute());
    EXPECT_THAT(
        statuses.Lines(),
        ElementsAre(
            Copying("dst/a"), "32.768 Copying file a", "65.536 Copying file a", "100 Copying file a"
        )
    );
    EXPECT_THAT(tree.List("dst"), IsEmpty());
}

struct CancelPoint {
    const char* name;
    std::size_t status; ///< whose callback stops the run
    std::size_t reports;
};

class KFileRuleCancelTest : public KFileRuleTest,
                            public ::testing::WithParamInterface<CancelPoint> {};

TEST_P(KFileRuleCancelTest, EndsTheCopyWithinOneChunk) {
    tree.Write("src/a", ArbitraryBytes(200000));
    statuses.At(GetParam().status, [&] { installer->Stop(); });
    KFileRule rule(&manager, InTree("copy,a,@T@/src,@T@/dst"));
    rule.Initialize();
    rule.Execute();
    EXPECT_THAT(statuses.Lines(), SizeIs(GetParam().reports));
    EXPECT_EQ(statuses.Lines().back(), "100 Copying file a");
    EXPECT_THAT(tree.List("dst"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    AStopAt,
    KFileRuleCancelTest,
    ::testing::Values(
        CancelPoint{"TheOpeningStatus", 1, 2},
        CancelPoint{"TheFirstChunk", 2, 3},
        CancelPoint{"TheSecondChunk", 3, 4},
        CancelPoint{"TheThirdChunk", 4, 5},
        CancelPoint{"TheLastChunk", 5, 6},
        CancelPoint{"TheClosingReport", 6, 6}
    ),
    KTEST::NameOfRow()
);

TEST_F(KFileRuleTest, AnEmptyFileIsDeletedTooWhenCancelled) {
    tree.Write("src/a", "");
    installer->Stop();
    KFileRule rule(&manager, InTree("copy,a,@T@/src,@T@/dst"));
    rule.Initialize();
    rule.Execute();
    EXPECT_THAT(statuses.Lines(), ElementsAre(Copying("dst/a"), "100 Copying file a"));
    EXPECT_THAT(tree.List("dst"), IsEmpty());
}

TEST_F(KFileRuleTest, AWildcardGoesOnThroughItsMatchesAfterACancellation) {
    tree.Write("src/a", ArbitraryBytes(100000));
    tree.Write("src/b", ArbitraryBytes(100000));
    tree.Write("src/c", "");
    tree.Write("dst/b", "stood there before");
    statuses.At(2, [&] { installer->Stop(); });
    KFileRule rule(&manager, InTree("copy,*,@T@/src,@T@/dst"));
    rule.Initialize();
    rule.Execute();
    EXPECT_THAT(
        statuses.Lines(),
        ElementsAre(
            Copying("dst/a"),
            "65.536 Copying file a",
            "100 Copying file a",
            Copying("dst/b"),
            "100 Copying file b",
            Copying("dst/c"),
            "100 Copying file c"
        )
    );
    EXPECT_THAT(tree.List("dst"), IsEmpty());
}

// Copying with a pattern

TEST_F(KFileRuleTest, AWildcardCopiesEveryMatchUnderItsOwnNameInOrder) {
    tree.Write("src/b.so", "b", 0755);
    tree.Write("src/a.so", "a");
    tree.Write("src/a.txt", "no");
    tree.Write("src/sub/c.so", "no");
    Run("file", "copy,*.so,@T@/src,@T@/dst,other.so");
    EXPECT_THAT(tree.List("dst"), ElementsAre("f 0644 a.so \"a\"", "f 0755 b.so \"b\""));
    EXPECT_THAT(
        statuses.Lines(),
        ElementsAre(
            Copying("dst/a.so"),
            "100 Copying file a.so",
            "100 Copying file a.so",
            Copying("dst/b.so"),
            "100 Copying file b.so",
            "100 Copying file b.so"
        )
    );
}

struct Pattern {
    const char* name;
    const char* pattern;
    std::vector<std::string> matches;
};

class KFileRulePatternTest : public KFileRuleTest, public ::testing::WithParamInterface<Pattern> {};

TEST_P(KFileRulePatternTest, ChoosesTheFiles) {
    for (const char* file :
         {"a1",
          "a2",
          "a12",
          ".hidden",
          "[b]",
          "\xc3\xa4"
          "1"}) {
        tree.Write(std::string("src/") + file, "");
    }
    tree.Directory("src/a9");
    Run("file", std::string("copy,") + GetParam().pattern + ",@T@/src,@T@/dst");
    std::vector<std::string> names;
    for (const std::string& line : tree.List("dst")) {
        names.push_back(line.substr(7, line.find(" \"") - 7));
    }
    EXPECT_EQ(names, GetParam().matches);
}

INSTANTIATE_TEST_SUITE_P(
    APattern,
    KFileRulePatternTest,
    ::testing::Values(
        Pattern{
            "OfAStarTakesAllFilesAlsoHiddenOnes",
            "*",
            {".hidden", "[b]", "a1", "a12", "a2", "\\xc3\\xa41"}},
        Pattern{"WithAQuestionMarkTakesOneCharacter", "a?", {"a1", "a2"}},
        Pattern{"CountsACharacterOfTwoBytesAsOne", "?1", {"a1", "\\xc3\\xa41"}},
        Pattern{"WithAStarInside", "a*2", {"a12", "a2"}},
        Pattern{"TakesBracketsAsTheyAre", "[b]*", {"[b]"}},
        Pattern{"ThatMatchesNothingDoesNothing", "z*", {}}
    ),
    KTEST::NameOfRow()
);

TEST_F(KFileRuleTest, AWildcardWithoutMatchesReportsNothing) {
    Run("file", "copy,*.so,@T@/src,@T@/no-such-directory");
    Run("file", "copy,*.so,@T@/no-such-source,@T@/dst");
    EXPECT_THAT(statuses.Lines(), IsEmpty());
}

TEST_F(KFileRuleTest, TheFirstErrorOfAWildcardLeavesTheFilesBeforeIt) {
    tree.Write("src/a", "a");
    tree.Link("src/b", "dangling");
    tree.Write("src/c", "c");
    EXPECT_EQ(FailureOf("copy,*,@T@/src,@T@/dst").GetCode(), static_cast<unsigned>(ENOENT));
    EXPECT_THAT(tree.List("dst"), ElementsAre("f 0644 a \"a\""));
}

// Deleting

TEST_F(KFileRuleTest, ADeleteRemovesTheFileAndSaysSoFirst) {
    tree.Write("dst/old.bin", "x");
    bool stoodThen = false;
    statuses.At(1, [&] { stoodThen = tree.Exists("dst/old.bin"); });
    Run("file", "delete,old.bin,@T@/dst");
    EXPECT_THAT(tree.List("dst"), IsEmpty());
    EXPECT_THAT(statuses.Lines(), ElementsAre(Deleting("dst/old.bin")));
    EXPECT_TRUE(stoodThen);
}

TEST_F(KFileRuleTest, ADeleteOfAMissingFileSucceeds) {
    Run("file", "delete,gone,@T@/dst");
    EXPECT_THAT(statuses.Lines(), ElementsAre(Deleting("dst/gone")));
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

TEST_F(KFileRuleTest, ADeleteOfALinkLeavesWhatItPointsTo) {
    tree.Write("dst/real", "x");
    tree.Link("dst/link", "real");
    Run("file", "delete,link,@T@/dst");
    EXPECT_THAT(tree.List("dst"), ElementsAre("f 0644 real \"x\""));
}

TEST_F(KFileRuleTest, ADeleteOfADirectoryIsRefused) {
    tree.Directory("dst/d");
    const KSUP::KError error = FailureOf("delete,d,@T@/dst");
    EXPECT_EQ(Place(error), "48 21.0 ins/KFileRule:70 DeleteFile");
    EXPECT_TRUE(tree.Exists("dst/d"));
}

TEST_F(KFileRuleTest, AFailedDeleteIsItsStatusFromLine70WithoutInformation) {
    KTEST::Injection inject;
    std::vector<std::string> asked;
    inject.SvcDeleteFile = [&](unsigned flags, const char* path) {
        asked.push_back(std::to_string(flags) + ' ' + path);
        return 5U;
    };
    const KSUP::KError error = FailureOf("delete,a,/s");
    EXPECT_EQ(Place(error), "48 5.0 ins/KFileRule:70 DeleteFile");
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
    EXPECT_THAT(asked, ElementsAre("0 /s/a"));
    EXPECT_EQ(manager.GetCompletedCount(), 0U);
}

TEST_F(KFileRuleTest, AWildcardDeletesTheMatchesAndPassesDirectoriesOver) {
    tree.Write("dst/a.tmp", "");
    tree.Link("dst/b.tmp", "dangling");
    tree.Directory("dst/c.tmp");
    tree.Write("dst/keep", "");
    Run("file", "delete,*.tmp,@T@/dst");
    EXPECT_THAT(tree.List("dst"), ElementsAre("d 0755 c.tmp", "f 0644 keep \"\""));
    EXPECT_THAT(statuses.Lines(), ElementsAre(Deleting("dst/a.tmp"), Deleting("dst/b.tmp")));
}

TEST_F(KFileRuleTest, AWildcardDeleteInAMissingDirectoryReportsNothing) {
    Run("file", "delete,*.tmp,@T@/no-such-directory");
    EXPECT_THAT(statuses.Lines(), IsEmpty());
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

TEST_F(KFileRuleTest, TheFirstFailureOfAWildcardDeleteEndsIt) {
    KTEST::Injection inject;
    std::vector<std::string> asked;
    inject.SvcDeleteFile = [&](unsigned, const char* path) {
        asked.emplace_back(path);
        return asked.size() == 2 ? 13U : 0U;
    };
    tree.Write("dst/a", "");
    tree.Write("dst/b", "");
    tree.Write("dst/c", "");
    EXPECT_EQ(Place(FailureOf("delete,*,@T@/dst")), "48 13.0 ins/KFileRule:70 DeleteFile");
    EXPECT_THAT(asked, ElementsAre(tree.Path("dst/a"), tree.Path("dst/b")));
}

TEST_F(KFileRuleTest, ADeleteDoesNotAskForCancellation) {
    tree.Write("dst/a", "");
    tree.Write("dst/b", "");
    statuses.At(1, [&] { installer->Stop(); });
    KFileRule rule(&manager, InTree("delete,*,@T@/dst"));
    rule.Initialize();
    rule.Execute();
    EXPECT_THAT(tree.List("dst"), IsEmpty());
}

// Linking

TEST_F(KFileRuleTest, ASymlinkPointsAtTheSourcePathAndReportsNothing) {
    Run("file", "symlink,app,/opt/no-such,@T@/dst,link");
    EXPECT_THAT(tree.List("dst"), ElementsAre("l link -> /opt/no-such/app"));
    EXPECT_THAT(statuses.Lines(), IsEmpty());
}

TEST_F(KFileRuleTest, ASymlinkKeepsTheNameWhenNoneIsGiven) {
    Run("file", "symlink,app,/opt/x/,@T@/dst");
    EXPECT_THAT(tree.List("dst"), ElementsAre("l app -> /opt/x/app"));
}

TEST_F(KFileRuleTest, ASymlinkReplacesALink) {
    tree.Link("dst/l", "/former");
    Run("file", "symlink,a,/s,@T@/dst,l");
    EXPECT_THAT(tree.List("dst"), ElementsAre("l l -> /s/a"));
}

TEST_F(KFileRuleTest, ASymlinkRefusesAFileThatStandsThere) {
    tree.Write("dst/l", "mine");
    const KSUP::KError error = FailureOf("symlink,a,/s,@T@/dst,l");
    EXPECT_EQ(error.GetCode(), static_cast<unsigned>(EEXIST));
    EXPECT_THAT(error.GetInfo().GetString().c_str(), HasSubstr(tree.Path("dst/l")));
    EXPECT_THAT(tree.List("dst"), ElementsAre("f 0644 l \"mine\""));
}

TEST_F(KFileRuleTest, ASymlinkIntoAMissingDirectoryIsAnError) {
    EXPECT_EQ(FailureOf("symlink,a,/s,@T@/none").GetCode(), static_cast<unsigned>(ENOENT));
}

TEST_F(KFileRuleTest, PatternsHaveNoMeaningForSymlinks) {
    tree.Write("src/a", "");
    Run("file", "symlink,*,@T@/src,@T@/dst,l");
    EXPECT_THAT(tree.List("dst"), ElementsAre("l l -> " + tree.Path("src/*")));
}

// Operations that are none

class KFileRuleUnknownTest : public KFileRuleTest,
                             public ::testing::WithParamInterface<const char*> {};

TEST_P(KFileRuleUnknownTest, IsAcceptedCountsAndDoesNothing) {
    tree.Write("src/a", "x");
    Run("file", std::string(GetParam()) + ",a,@T@/src,@T@/dst");
    EXPECT_THAT(tree.List("dst"), IsEmpty());
    EXPECT_THAT(tree.List("src"), SizeIs(1));
    EXPECT_THAT(statuses.Lines(), IsEmpty());
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
    EXPECT_THAT(LogLines(), SizeIs(2)); // added, executed
}

INSTANTIATE_TEST_SUITE_P(
    AnOperation,
    KFileRuleUnknownTest,
    ::testing::Values("Copy", "COPY", "copy ", " copy", "move", "Delete", "Symlink", "$copy$")
);

} // namespace
