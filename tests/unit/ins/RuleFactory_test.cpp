// SPDX-License-Identifier: MIT
//
// Rule types of a program's own, in the installer's own run.
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"

#include <ins/KFileRule.h>
#include <sup++/KErrorSource.h>

#include <gmock/gmock.h>

#include <thread>

namespace {

using KINS::KInstallRule;
using KINS::KInstallRuleManagerBase;
using KSUP::KString;
using KTEST::ErrorOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr KSUP::KErrorSource errorSource{"tests/KNoteRule"};

/// What the rules below were asked for; "parsed", "executed" and so on with their line.
using Notes = std::vector<std::string>;

/// `note=TEXT`: writes down what is asked of it.
class KNoteRule : public KInstallRule {
  public:
    KNoteRule(KInstallRuleManagerBase& owner, const KString& line, Notes& toFill)
        : KInstallRule(&owner, line),
          notes(toFill) {}
    ~KNoteRule() override { Note("deleted"); }
    KNoteRule(const KNoteRule&) = delete;
    KNoteRule& operator=(const KNoteRule&) = delete;

    void ParseRule(const std::vector<KString>& fields) override {
        if (fields.empty()) {
            errorSource.Raise(KSUP::TraceLevel::rule, KSUP::ErrorCode::malformedRule);
        }
        Note("parsed");
    }
    void Execute() override {
        manager->SetCurrentRuleStatus("Noting " + ruleLine);
        log << "Noted " << ruleLine << KSUP::KLogTypes::EndEntry;
        Note("executed");
        thread = std::this_thread::get_id();
    }
    KString Description() const override { return "Note " + ruleLine; }

    static inline std::thread::id thread; // that executed the last one

  private:
    void Note(const char* what) { notes.push_back(what + (" " + std::string(ruleLine.c_str()))); }
    Notes& notes;
};

/// A copy that tells of itself when it is done.
class KTellingFileRule : public KINS::KFileRule {
  public:
    using KFileRule::KFileRule;
    void Execute() override {
        KFileRule::Execute();
        manager->SetCurrentRuleStatus("and done");
    }
};

class RuleFactoryTest : public KTEST::EngineTest {
  protected:
    RuleFactoryTest() {
        installer->SetRuleFactory(
            [this](
                KInstallRuleManagerBase& manager, const KString& type, const KString& line
            ) -> std::unique_ptr<KInstallRule> {
                asked.push_back(std::string(type.c_str()) + "=" + line.c_str());
                if (type == "note") {
                    return std::make_unique<KNoteRule>(manager, line, notes);
                }
                if (type == "file") {
                    return std::make_unique<KTellingFileRule>(&manager, line);
                }
                return nullptr;
            }
        );
    }
    ~RuleFactoryTest() override { installer.reset(); } // whose rules write to `notes` at their end
    RuleFactoryTest(const RuleFactoryTest&) = delete;
    RuleFactoryTest& operator=(const RuleFactoryTest&) = delete;
    void Run(const char* script) {
        GivenScript(script);
        Initialize();
        installer->StartUninstall(tree.Path("p"));
        WaitForEnd();
    }
    std::vector<std::string> asked;
    Notes notes;
};

TEST_F(RuleFactoryTest, AnOwnKeywordRunsInItsPlaceOnTheWorkerThreadWithTheInstallersLog) {
    Run("[remove]\ndirectory=create,@T@/a\nnote=one\ndirectory=create,@T@/b\n");
    EXPECT_THAT(notes, ElementsAre("parsed one", "executed one"));
    EXPECT_THAT(statuses.Threads(), ElementsAre(KNoteRule::thread));
    EXPECT_NE(KNoteRule::thread, std::this_thread::get_id());
    EXPECT_THAT(
        statuses.Lines(),
        ElementsAre(
            "- Creating directory " + tree.Path("a"),
            "- Noting one",
            "- Creating directory " + tree.Path("b")
        )
    );
    EXPECT_THAT(LogLines(), ::testing::Contains("Noted one"));
    EXPECT_EQ(installer->GetCompletedCount(), 3U);
}

TEST_F(RuleFactoryTest, IsAskedFirstForEveryLineOfIncludedSectionsToo) {
    Run("[remove]\nsection=more\nnote=two\n[more]\nnote=one\n");
    EXPECT_THAT(asked, ElementsAre("section=more", "note=one", "note=two"));
    EXPECT_THAT(notes, ElementsAre("parsed one", "parsed two", "executed one", "executed two"));
}

TEST_F(RuleFactoryTest, RefinesARuleOfAKnownKeyword) {
    tree.Write("kit/a", "");
    Run("[remove]\nfile=copy,a,@T@/kit,@T@\n");
    EXPECT_EQ(statuses.Lines().back(), "- and done");
    EXPECT_TRUE(tree.Exists("a"));
}

TEST_F(RuleFactoryTest, IsAskedForLinesOfTheCommandLine) {
    KTEST::EngineWorld::GivenArguments({"--addProfileLine=S,k,v"});
    GivenScript("[install]\n");
    Initialize();
    installer->Start(tree.Path("p"), KINS::ModeInstall);
    EXPECT_EQ(ErrorOf([&] { WaitForEnd(); }).GetCode(), 2U); // no directory for it here
    EXPECT_THAT(asked, ElementsAre("profile=put,$pathTargetConfig$$iniFile$,S,k,v"));
}

TEST_F(RuleFactoryTest, ALineThatAnOwnRuleRefusesStopsTheLoading) {
    GivenScript("[remove]\nnote=one\nnote=\n");
    Initialize();
    EXPECT_EQ(ErrorOf([&] { installer->StartUninstall(tree.Path("p")); }).GetCode(), 7000U);
    EXPECT_THAT(notes, ElementsAre("parsed one", "deleted "));
    EXPECT_TRUE(installer->IsComplete());
}

TEST_F(RuleFactoryTest, AKeywordThatNobodyKnowsIsStillRefused) {
    GivenScript("[remove]\nnotes=one\n");
    Initialize();
    EXPECT_EQ(ErrorOf([&] { installer->StartUninstall(tree.Path("p")); }).GetCode(), 7000U);
}

TEST_F(RuleFactoryTest, AStopKeepsAnOwnRuleFromRunning) {
    statuses.At(1, [&] { installer->Stop(); });
    EXPECT_EQ(ErrorOf([&] { Run("[remove]\ndirectory=create,@T@/a\nnote=one\n"); }).GetCode(), 66U);
    EXPECT_THAT(notes, ElementsAre("parsed one"));
}

TEST_F(RuleFactoryTest, AnEmptyFactoryIsNone) {
    installer->SetRuleFactory({});
    GivenScript("[remove]\nnote=one\n");
    Initialize();
    EXPECT_EQ(ErrorOf([&] { installer->StartUninstall(tree.Path("p")); }).GetCode(), 7000U);
    EXPECT_THAT(asked, IsEmpty());
}

} // namespace
