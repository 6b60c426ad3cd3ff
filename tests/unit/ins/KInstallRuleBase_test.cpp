// SPDX-License-Identifier: MIT
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/NameOfRow.h"
#include "../../support/SlotOf.h"

#include <ins/KInstallRule.h>

#include <gmock/gmock.h>

#include <type_traits>

namespace {

using KINS::KInstallRule;
using KINS::KInstallRuleBase;
using KSUP::KString;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Keeps what the base hands to the hooks of a rule type.
class RecordingRule : public KInstallRule {
  public:
    using KInstallRule::KInstallRule;

    void Execute() override {}
    KString Description() const override { return "Record " + ruleLine; }
    void ParseRule(const std::vector<KString>& fields) override {
        initializedWhileParsing = initialized;
        ++parsings;
        parsed.clear();
        for (const KString& field : fields) {
            parsed.emplace_back(field.c_str());
        }
    }

    bool IsInitialized() const { return initialized; }
    const KSUP::KLog& Log() const { return log; }
    const char* Line() const { return ruleLine.c_str(); }

    std::vector<std::string> parsed;
    unsigned parsings = 0;
    bool initializedWhileParsing = false;
};

/// A rule type that overrides nothing that it need not.
class PlainRule : public KInstallRule {
  public:
    using KInstallRule::KInstallRule;
    void Execute() override {}
    KString Description() const override { return "Plain"; }
};

class KInstallRuleBaseTest : public KTEST::RuleTest {};

TEST_F(KInstallRuleBaseTest, SlotsFollowTheOrderOfTheInterface) {
    using KTEST::SlotOf;
    EXPECT_EQ(SlotOf(&KInstallRuleBase::Execute), 2);
    EXPECT_EQ(SlotOf(&KInstallRuleBase::Initialize), 3);
    EXPECT_EQ(SlotOf(&KInstallRuleBase::Description), 4);
    EXPECT_EQ(SlotOf(&KInstallRuleBase::ShouldCount), 5);
    EXPECT_EQ(SlotOf(&KInstallRuleBase::ParseRule), 6);
    EXPECT_EQ(KTEST::notVirtual, SlotOf(&KInstallRuleBase::ExpandMacros));
}

TEST_F(KInstallRuleBaseTest, RulesAreNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<RecordingRule>);
    EXPECT_FALSE(std::is_copy_assignable_v<RecordingRule>);
    EXPECT_FALSE(std::is_move_constructible_v<RecordingRule>);
    EXPECT_TRUE(std::has_virtual_destructor_v<KInstallRuleBase>);
}

TEST_F(KInstallRuleBaseTest, EveryRuleTypeIsTaggedAsInstallRule) {
    EXPECT_STREQ(PlainRule(&manager, "").GetClassTag(), "KInstallRule");
}

TEST_F(KInstallRuleBaseTest, ConstructingKeepsTheLineAndParsesNothing) {
    const RecordingRule rule(&manager, "a,$os$,c");
    EXPECT_STREQ(rule.Line(), "a,$os$,c");
    EXPECT_EQ(rule.parsings, 0U);
    EXPECT_FALSE(rule.IsInitialized());
}

TEST_F(KInstallRuleBaseTest, TheLogIsTheManagers) {
    const RecordingRule rule(&manager, "a");
    EXPECT_EQ(&manager.GetInstallLog(), &rule.Log());
    EXPECT_EQ(&installer->GetLog(), &rule.Log());
}

TEST_F(KInstallRuleBaseTest, InitializeMarksTheRuleBeforeItParses) {
    RecordingRule rule(&manager, "a,b");
    rule.Initialize();
    EXPECT_TRUE(rule.initializedWhileParsing);
    EXPECT_TRUE(rule.IsInitialized());
    EXPECT_EQ(rule.parsings, 1U);
}

TEST_F(KInstallRuleBaseTest, InitializeOfTheBaseParsesAgainEachTime) {
    RecordingRule rule(&manager, "a,b");
    rule.Initialize();
    rule.Initialize();
    EXPECT_EQ(rule.parsings, 2U);
}

TEST_F(KInstallRuleBaseTest, ARuleTypeWithoutParsingAcceptsEveryLine) {
    PlainRule rule(&manager, ",,,a,,");
    EXPECT_NO_THROW(rule.Initialize());
}

TEST_F(KInstallRuleBaseTest, ARuleCountsUnlessItsTypeSaysOtherwise) {
    EXPECT_TRUE(PlainRule(&manager, "").ShouldCount());
}

TEST_F(KInstallRuleBaseTest, LoggingARuleWritesItsDescription) {
    const RecordingRule rule(&manager, "a,b");
    KSUP::KLogBase& log = installer->GetLog();
    log << KSUP::KLogPrefix(KString("Test:"));
    KSUP::KLogBase& returned = log << static_cast<const KInstallRuleBase*>(&rule);
    log << KSUP::KLogTypes::EndEntry;
    EXPECT_EQ(&log, &returned);
    EXPECT_THAT(LogLines(), ElementsAre("Test: Record a,b"));
}

/// A log of a program's own, which needs no file and so is never opened.
class OwnLog : public KSUP::KLogBase {
  public:
    OwnLog() : KLogBase("OwnLog") {}
    using KLogBase::operator<<;
    KLogBase& operator<<(const KString& text) override {
        written += text.c_str();
        return *this;
    }
    KLogBase& operator<<(const char* text) override {
        written += text;
        return *this;
    }

    std::string written;
};

TEST_F(KInstallRuleBaseTest, ALogOfAnotherClassGetsTheDescriptionToo) {
    const RecordingRule rule(&manager, "a,b");
    OwnLog log;
    EXPECT_EQ(&log, &(log << "-> " << static_cast<const KInstallRuleBase*>(&rule)));
    EXPECT_EQ(log.written, "-> Record a,b");
}

TEST_F(KInstallRuleBaseTest, AClosedLogSwallowsTheDescription) {
    const RecordingRule rule(&manager, "a,b");
    KSUP::KLogBase& log = installer->GetLog();
    log.Close();
    EXPECT_EQ(&log, &(log << static_cast<const KInstallRuleBase*>(&rule)));
    EXPECT_THAT(LogLines(), testing::IsEmpty());
}

TEST_F(KInstallRuleBaseTest, ExpandMacrosAsksTheManager) {
    class OwnExpansion : public KINS::KInstallRuleManager {
      public:
        using KInstallRuleManager::KInstallRuleManager;
        KString ExpandMacros(const KString& text) const override { return "own " + text; }
    };
    const OwnExpansion own(installer.get());
    const PlainRule rule(const_cast<OwnExpansion*>(&own), "");
    EXPECT_STREQ(rule.ExpandMacros("$os$").c_str(), "own $os$");
    EXPECT_STREQ(PlainRule(&manager, "").ExpandMacros("$os$").c_str(), "lin");
}

struct FieldsOfLine {
    const char* name;
    const char* line;
    std::vector<std::string> fields;
};

class KInstallRuleBaseFieldsTest : public KTEST::RuleTest,
                                   public ::testing::WithParamInterface<FieldsOfLine> {};

TEST_P(KInstallRuleBaseFieldsTest, ReachParseRule) {
    RecordingRule rule(&manager, GetParam().line);
    rule.Initialize();
    EXPECT_EQ(rule.parsed, GetParam().fields);
    EXPECT_EQ(rule.parsings, 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Lines,
    KInstallRuleBaseFieldsTest,
    ::testing::Values(
        FieldsOfLine{"ALineWithoutCommasIsOneField", "whole line", {"whole line"}},
        FieldsOfLine{"AnEmptyLineHasNone", "", {}},
        FieldsOfLine{"NothingButCommasHasNone", ",,,", {}},
        FieldsOfLine{"FourInOrder", "file,copy,a,b", {"file", "copy", "a", "b"}},
        FieldsOfLine{"AnEmptyOneVanishes", "a,,b", {"a", "b"}},
        FieldsOfLine{"EmptyOnesAtBothEndsVanish", ",a,", {"a"}},
        FieldsOfLine{"BlanksStay", "a, b ,\tc", {"a", " b ", "\tc"}},
        FieldsOfLine{"QuotesProtectNothing", "\"a,b\"", {"\"a", "b\""}},
        FieldsOfLine{"BackslashesProtectNothing", "a\\,b", {"a\\", "b"}},
        FieldsOfLine{
            "CharactersOfSeveralBytesStayWhole",
            "\xc3\xa4,\xe2\x82\xac",
            {"\xc3\xa4", "\xe2\x82\xac"}},
        FieldsOfLine{"MacrosStandUnexpanded", "$os$,$x$", {"$os$", "$x$"}}
    ),
    KTEST::NameOfRow()
);

} // namespace
