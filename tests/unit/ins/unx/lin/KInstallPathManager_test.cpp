// SPDX-License-Identifier: MIT
#include "../../../../support/EngineRig.h"
#include "../../../../support/ErrorProbe.h"
#include "../../../../support/NameOfRow.h"
#include "../../../../support/SlotOf.h"
#include "../../Injected.h"

#include <ins/unx/lin/KInstallPathManager.h>
#include <sup++/KUtil.h>
#include <sup++/SvcFile.h>

#include <gmock/gmock.h>

#include <cerrno>

namespace {

using KINS::KInstallPathManager;
using KSUP::KString;
using KTEST::ErrorOf;
using KTEST::Place;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// Looks for the record's link in a temporary tree instead of /etc.
class RecordInTree : public KInstallPathManager {
  public:
    RecordInTree(KINS::KInstaller* installer, std::string link)
        : KInstallPathManager(installer),
          linkPath(std::move(link)) {}

    KString ExpandMacros(const KString& text) const override {
        return text == "/etc/$serviceName$/$serviceName$" ? KString(linkPath)
                                                          : KInstallPathManager::ExpandMacros(text);
    }

  private:
    std::string linkPath;
};

struct Record {
    std::string path;
    std::string version;
    unsigned buildNumber;

    friend bool operator==(const Record&, const Record&) = default;
};

void PrintTo(const Record& record, std::ostream* out) {
    *out << record.path << ' ' << record.version << ' ' << record.buildNumber;
}

class KInstallPathManagerTest : public KTEST::EngineTest {
  protected:
    void GivenLink() { tree.Link("link", tree.Path("p/lin/x86/svc")); }
    void GivenRecord(const char* text) {
        GivenLink();
        tree.Write("p/config/dps.ini", text);
    }
    Record Read() const {
        KString path("unchanged path");
        KString version("unchanged version");
        unsigned buildNumber = 77;
        manager.GetInstalledProductInformation(path, version, buildNumber);
        return {path.c_str(), version.c_str(), buildNumber};
    }

    RecordInTree manager{installer.get(), tree.Path("link")};
};

// Macro and default path

TEST_F(KInstallPathManagerTest, OverridesInTheSlotsOfItsBase) {
    using KTEST::SlotOf;
    EXPECT_EQ(SlotOf(&KInstallPathManager::Initialize), 2);
    EXPECT_EQ(SlotOf(&KInstallPathManager::GetInstalledProductInformation), 4);
    EXPECT_EQ(SlotOf(&KInstallPathManager::PutInstalledProductInformation), 5);
    EXPECT_EQ(SlotOf(&KInstallPathManager::GetDefaultProductPath), 6);
}

TEST_F(KInstallPathManagerTest, ProgramNamesHaveNoEndingOnceInitialized) {
    EXPECT_STREQ(manager.ExpandMacros("prog$binext$").c_str(), "prog$binext$");
    manager.Initialize("/opt/p");
    EXPECT_STREQ(manager.ExpandMacros("prog$binext$").c_str(), "prog");
    manager.Initialize("/opt/q");
    EXPECT_STREQ(manager.ExpandMacros("prog$binext$").c_str(), "prog");
    EXPECT_STREQ(manager.ExpandMacros("$pathTarget$").c_str(), "/opt/q/");
}

struct DefaultPath {
    const char* name;
    const char* script;
    const char* path;
};

class DefaultPathTest : public KTEST::EngineTest,
                        public ::testing::WithParamInterface<DefaultPath> {};

TEST_P(DefaultPathTest, IsTheValueAsItStandsOrTheBuiltInOne) {
    GivenScript(GetParam().script);
    Initialize();
    const KInstallPathManager manager(installer.get());
    EXPECT_STREQ(manager.GetDefaultProductPath().c_str(), GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(
    AScript,
    DefaultPathTest,
    ::testing::Values(
        DefaultPath{"WithTheKey", "[install]\ndefaultPath.$os$=/opt/x\n", "/opt/x"},
        DefaultPath{
            "WithMacrosInTheValueLeavesThem",
            "[install]\ndefaultPath.$os$=/opt/$product$/$os$\n",
            "/opt/$product$/$os$"},
        DefaultPath{"WithoutTheKey", "[install]\nfile=copy,a,b,c\n", "/usr/local/korvane/dps"},
        DefaultPath{
            "WithTheSystemsNameInTheKey",
            "[install]\ndefaultPath.lin=/opt/x\n",
            "/usr/local/korvane/dps"},
        DefaultPath{
            "WithTheKeyInAnotherSection",
            "[remove]\ndefaultPath.$os$=/opt/x\n",
            "/usr/local/korvane/dps"},
        DefaultPath{"ThatIsEmpty", "", "/usr/local/korvane/dps"}
    ),
    KTEST::NameOfRow()
);

TEST_F(KInstallPathManagerTest, WithoutAScriptTheDefaultPathIsTheBuiltInOne) {
    EXPECT_STREQ(manager.GetDefaultProductPath().c_str(), "/usr/local/korvane/dps");
}

// Reading the record

struct ReadRecord {
    const char* name;
    const char* file;
    const char* version;
    unsigned buildNumber;
};

class ReadRecordTest : public KInstallPathManagerTest,
                       public ::testing::WithParamInterface<ReadRecord> {};

TEST_P(ReadRecordTest, GivesPathVersionAndBuildNumber) {
    GivenRecord(GetParam().file);
    EXPECT_EQ((Record{tree.Path("p"), GetParam().version, GetParam().buildNumber}), Read());
}

INSTANTIATE_TEST_SUITE_P(
    ARecord,
    ReadRecordTest,
    ::testing::Values(
        ReadRecord{"InFull", "[installControl]\ninstalledVersion=2.1\nbuildNumber=37\n", "2.1", 37},
        ReadRecord{
            "AmongOtherSections",
            "[General]\na=b\n[installControl]\ninstalledVersion=2.1\nbuildNumber=37\n[z]\n",
            "2.1",
            37},
        ReadRecord{
            "WithoutItsSection", "[General]\ninstalledVersion=2.1\nbuildNumber=37\n", "unknown", 0},
        ReadRecord{"WithoutItsKeys", "[installControl]\n", "unknown", 0},
        ReadRecord{
            "WithABuildNumberThatIsNone",
            "[installControl]\ninstalledVersion=2.1\nbuildNumber=abc\n",
            "2.1",
            0},
        ReadRecord{"WithAnEmptyBuildNumber", "[installControl]\nbuildNumber=\n", "unknown", 0},
        ReadRecord{
            "WithABuildNumberThatIsTooLarge",
            "[installControl]\nbuildNumber=4294967296\n",
            "unknown",
            0},
        ReadRecord{
            "WithTheLargestBuildNumber",
            "[installControl]\nbuildNumber=4294967295\n",
            "unknown",
            4294967295U},
        ReadRecord{
            "WithAHexadecimalBuildNumber", "[installControl]\nbuildNumber=0x10\n", "unknown", 16},
        ReadRecord{
            "WithSomethingBehindTheNumber", "[installControl]\nbuildNumber=12abc\n", "unknown", 12},
        ReadRecord{"OfNoBytes", "", "unknown", 0}
    ),
    KTEST::NameOfRow()
);

TEST_F(KInstallPathManagerTest, AMissingRecordFileStillIsAProduct) {
    GivenLink();
    EXPECT_EQ((Record{tree.Path("p"), "unknown", 0}), Read());
}

TEST_F(KInstallPathManagerTest, ADirectoryInPlaceOfTheRecordFileStillIsAProduct) {
    GivenLink();
    tree.Directory("p/config/dps.ini");
    EXPECT_EQ((Record{tree.Path("p"), "unknown", 0}), Read());
}

struct LinkTarget {
    const char* name;
    const char* target;
    const char* path;
};

class LinkTargetTest : public KInstallPathManagerTest,
                       public ::testing::WithParamInterface<LinkTarget> {};

TEST_P(LinkTargetTest, LosesItsLastThreeComponents) {
    tree.Link("link", GetParam().target);
    EXPECT_EQ(Read().path, GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(
    ATarget,
    LinkTargetTest,
    ::testing::Values(
        LinkTarget{"InAPlatformDirectory", "/inspp/p/lin/x86/svc", "/inspp/p"},
        LinkTarget{"WithASeparatorAtItsEnd", "/inspp/p/lin/x86/svc/", "/inspp/p"},
        LinkTarget{"OfThreeComponents", "/lin/x86/svc", "/"},
        LinkTarget{"OfMany", "/a/b/c/d/e/f/g", "/a/b/c/d"}
    ),
    KTEST::NameOfRow()
);

TEST_F(KInstallPathManagerTest, DoubledSeparatorsOfTheLinkCountAsOne) {
    tree.Write("p/config/dps.ini", "[installControl]\ninstalledVersion=2.1\nbuildNumber=37\n");
    tree.Link("link", "//" + tree.Path("p").substr(1) + "//lin///x86//svc//");
    EXPECT_EQ((Record{tree.Path("p"), "2.1", 37}), Read());
}

TEST_F(KInstallPathManagerTest, WhetherAProductIsInstalledIsFoundWithoutAnError) {
    EXPECT_FALSE(manager.IsProductInstalled());
    tree.Link("link", "relative");
    EXPECT_FALSE(manager.IsProductInstalled());
    tree.Remove("link");
    GivenLink();
    EXPECT_TRUE(manager.IsProductInstalled());
    Read(); // a record without its file is expected too
    EXPECT_THAT(trace.Messages(), ::testing::IsEmpty());
}

TEST_F(KInstallPathManagerTest, WithoutALinkReadingIsError64AndChangesNothing) {
    KString path("unchanged path");
    KString version("unchanged version");
    unsigned buildNumber = 77;
    const KSUP::KError error =
        ErrorOf([&] { manager.GetInstalledProductInformation(path, version, buildNumber); });
    EXPECT_THAT(
        Place(error),
        ::testing::StartsWith(
            "48 64.0 ins/unx/lin/KInstallPathManager:94 GetInstalledProductInformation"
        )
    );
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
    EXPECT_STREQ(path.c_str(), "unchanged path");
    EXPECT_STREQ(version.c_str(), "unchanged version");
    EXPECT_EQ(buildNumber, 77U);
}

TEST_F(KInstallPathManagerTest, AFileInPlaceOfTheLinkIsError64) {
    tree.Write("link", tree.Path("p/lin/x86/svc"));
    EXPECT_EQ(ErrorOf([&] { Read(); }).GetCode(), 64U);
}

TEST_F(KInstallPathManagerTest, ARelativeLinkIsError16AlthoughItsTargetIsThere) {
    tree.Write("p/lin/x86/svc", "");
    tree.Write("p/config/dps.ini", "[installControl]\ninstalledVersion=2.1\n");
    tree.Link("link", "p/lin/x86/svc");
    const KSUP::KError error = ErrorOf([&] { Read(); });
    EXPECT_THAT(
        Place(error),
        ::testing::StartsWith(
            "48 16.0 ins/unx/lin/KInstallPathManager:101 GetInstalledProductInformation"
        )
    );
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
}

// Writing the record

TEST_F(KInstallPathManagerTest, WhatIsWrittenReadsBack) {
    GivenRecord("");
    manager.PutInstalledProductInformation("1.2.3", 7);
    EXPECT_EQ((Record{tree.Path("p"), "1.2.3", 7}), Read());
    EXPECT_EQ(
        tree.Read("p/config/dps.ini"), "[installControl]\ninstalledVersion=1.2.3\nbuildNumber=7\n"
    );
}

TEST_F(KInstallPathManagerTest, TheLargestBuildNumberIsWrittenInDecimal) {
    GivenRecord("");
    manager.PutInstalledProductInformation("1", 4294967295U);
    EXPECT_THAT(tree.Read("p/config/dps.ini"), HasSubstr("\nbuildNumber=4294967295\n"));
    EXPECT_EQ(Read().buildNumber, 4294967295U);
}

TEST_F(KInstallPathManagerTest, WritingReplacesTheValuesAndKeepsTheRestOfTheFile) {
    GivenRecord(
        "# "
        "theirs\n[General]\nLevel=3\n\n[installControl]\nbuildNumber=1\nx=y\ninstalledVersion=0.9\n"
    );
    manager.PutInstalledProductInformation("2.2", 38);
    EXPECT_EQ(
        tree.Read("p/config/dps.ini"),
        "# "
        "theirs\n[General]\nLevel=3\n\n[installControl]\nbuildNumber=38\nx=y\ninstalledVersion=2."
        "2\n"
    );
}

/// What the record's file holds after each of its changes.
struct SeenRecords {
    static void Look(void* seen, unsigned what, const char* path) noexcept {
        auto& self = *static_cast<SeenRecords*>(seen);
        if (what == SvcWroteFile && path == self.tree.Path("p/config/dps.ini")) {
            self.texts.push_back(self.tree.Read("p/config/dps.ini"));
        }
    }
    const KTEST::TemporaryTree& tree;
    std::vector<std::string> texts;
};

TEST_F(KInstallPathManagerTest, TheVersionOfOneBuildNeverStandsWithTheNumberOfAnother) {
    GivenRecord("[installControl]\ninstalledVersion=2.1\nbuildNumber=37\n");
    SeenRecords seen{tree, {}};
    ASSERT_EQ(SvcSetWriteListener(&SeenRecords::Look, &seen), 0U);
    manager.PutInstalledProductInformation("2.2", 4);
    ASSERT_EQ(SvcSetWriteListener(nullptr, nullptr), 0U);
    EXPECT_THAT(seen.texts, ElementsAre("[installControl]\ninstalledVersion=2.2\nbuildNumber=4\n"));
}

TEST_F(KInstallPathManagerTest, WithoutALinkWritingIsError64) {
    tree.Write("p/config/dps.ini", "");
    const KSUP::KError error = ErrorOf([&] { manager.PutInstalledProductInformation("1", 1); });
    EXPECT_THAT(
        Place(error),
        ::testing::StartsWith(
            "48 64.0 ins/unx/lin/KInstallPathManager:57 PutInstalledProductInformation"
        )
    );
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
}

TEST_F(KInstallPathManagerTest, WithARelativeLinkWritingIsError16AndChangesNothing) {
    tree.Link("link", "p/lin/x86/svc");
    tree.Write("p/config/dps.ini", "[General]\n");
    const KSUP::KError error = ErrorOf([&] { manager.PutInstalledProductInformation("1", 1); });
    EXPECT_THAT(
        Place(error),
        ::testing::StartsWith(
            "48 16.0 ins/unx/lin/KInstallPathManager:64 PutInstalledProductInformation"
        )
    );
    EXPECT_EQ(tree.Read("p/config/dps.ini"), "[General]\n");
}

TEST_F(KInstallPathManagerTest, WithoutARecordFileWritingIsError36OfTheProfile) {
    GivenLink();
    const KSUP::KError error = ErrorOf([&] { manager.PutInstalledProductInformation("1", 1); });
    EXPECT_THAT(Place(error), ::testing::StartsWith("24 36.0 sup++/KProfile:120 PutNumber"));
    EXPECT_FALSE(tree.Exists("p/config"));
}

TEST_F(KInstallPathManagerTest, TheDiskIsFlushedBeforeTheRecordIsWritten) {
    GivenRecord("");
    KTEST::Injection inject;
    std::string fileAtFlush = "not flushed";
    inject.SvcFlushWrites = [&] {
        fileAtFlush = tree.Read("p/config/dps.ini");
        return 0U;
    };
    manager.PutInstalledProductInformation("1", 1);
    EXPECT_EQ(fileAtFlush, "");
    EXPECT_EQ(Read().version, "1");
}

TEST_F(KInstallPathManagerTest, ADiskThatFailsToFlushIsAnErrorAndLeavesTheRecord) {
    GivenRecord("[installControl]\ninstalledVersion=2.1\nbuildNumber=37\n");
    KTEST::Injection inject;
    inject.SvcFlushWrites = [] { return static_cast<unsigned>(EIO); };
    const KSUP::KError error = ErrorOf([&] { manager.PutInstalledProductInformation("2.2", 38); });
    EXPECT_EQ(error.GetCode(), static_cast<unsigned>(EIO));
    EXPECT_EQ((Record{tree.Path("p"), "2.1", 37}), Read());
}

} // namespace
