// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/script/KScript.h>
#include <sup++/SvcData.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace {

using KSETUP::ColumnOfField;
using KSETUP::FieldsOf;
using KSETUP::KScript;
using KSETUP::KScriptLine;
using KSETUP::KScriptRule;
using KSETUP::WrittenFields;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KScriptTest : public ::testing::Test {
  protected:
    KScript Script(const std::string& text) {
        tree.Write("install.ini", text);
        return KScript(tree.Path("install.ini").c_str());
    }

    /// As "LINE type=value" for each rule.
    static std::vector<std::string> Rules(const KScript::Unfolded& unfolded) {
        std::vector<std::string> rules;
        for (const KScriptRule& rule : unfolded.rules) {
            rules.push_back(
                std::to_string(rule.line.number) + " " + rule.line.type + "=" + rule.line.value
            );
        }
        return rules;
    }

    /// Two macros, one of them with a comma and one with nothing in it.
    static KSUP::KString Expand(const KSUP::KString& text) {
        KSUP::KString expanded(text);
        static_cast<void>(expanded.Replace("$two$", "1,2", 0, 0, true));
        static_cast<void>(expanded.Replace("$none$", "", 0, 0, true));
        static_cast<void>(expanded.Replace("$name$", "a", 0, 0, true));
        return expanded;
    }
    static std::vector<std::string> Fields(const std::string& type, const std::string& value) {
        return FieldsOf(KScriptLine{1, "install", type, value}, Expand);
    }

    KTEST::TemporaryTree tree;
};

TEST_F(KScriptTest, OneThatCannotBeReadNowIsNotTakenForEmpty) {
    tree.Write("install.ini", "[install]\nfile=a\n");
    unsigned nth = 1;
    for (bool isReached = true; isReached; ++nth) {
        std::string line;
        failcall_arm("read", nth, EIO, 0);
        try {
            line = KScript(tree.Path("install.ini").c_str()).GetText(2);
        } catch (const KSETUP::KSetupFailure& failure) {
            line = failure.what();
        }
        isReached = failcall_disarm() >= nth;
        EXPECT_THAT(line, ::testing::AnyOf("file=a", ::testing::HasSubstr("Input/output error")));
    }
    EXPECT_GT(nth, 3U);
}

TEST_F(KScriptTest, AMissingFileIsNoKit) {
    try {
        const KScript script(tree.Path("none").c_str());
        FAIL() << "it was read";
    } catch (const KSETUP::KSetupFailure& failure) {
        EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::noKit);
    }
}

TEST_F(KScriptTest, LinesHaveTheirNumbersInTheFile) {
    const KScript script =
        Script("\xEF\xBB\xBF; head\r\n[a]\r\n x = 1 \r\n\r\n[b]\ny=2\n[ a ]\nz\n");
    const std::vector<KScriptLine> lines = script.GetLines("a");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].number, 3U);
    EXPECT_EQ(lines[0].type, "x");
    EXPECT_EQ(lines[0].value, "1");
    EXPECT_EQ(lines[1].number, 8U);
    EXPECT_EQ(lines[1].type, "z");
    EXPECT_EQ(lines[1].value, "");
    EXPECT_EQ(script.GetText(1), "; head");
    EXPECT_EQ(script.GetText(3), " x = 1 ");
    EXPECT_EQ(script.GetText(0), "");
    EXPECT_EQ(script.GetText(9), "");
    EXPECT_EQ(script.GetLineCount(), 8U);
}

TEST_F(KScriptTest, HeadersAreToldWithTheirLines) {
    const KScript script = Script("[a]\n[ b ] ; no header\n  [ c d ]\n");
    ASSERT_EQ(script.GetHeaders().size(), 2U);
    EXPECT_EQ(script.GetHeaders()[1].line, 3U);
    EXPECT_EQ(script.GetHeaders()[1].name, "c d");
    EXPECT_TRUE(script.HasSection(" a "));
    EXPECT_FALSE(script.HasSection("b"));
}

TEST_F(KScriptTest, ASectionIsFollowedByTheOneOfTheArchitecture) {
    const std::string here = SvcGetGlobalDataEx()->architecture;
    const KScript script =
        Script("[install." + here + "]\nfile=2\n[install.other]\nfile=3\n[install]\nfile=1\n");
    EXPECT_THAT(Rules(script.Unfold("install", Expand)), ElementsAre("6 file=1", "2 file=2"));
    EXPECT_THAT(
        Rules(script.Unfold("install", Expand, "other")), ElementsAre("6 file=1", "4 file=3")
    );
}

TEST_F(KScriptTest, AnIncludedSectionStandsBeforeTheLineThatIncludesIt) {
    const KScript script = Script("[install]\nfile=1\nsection=$name$\nfile=3\n[a]\nfile=2\n");
    const KScript::Unfolded unfolded = script.Unfold("install", Expand);
    EXPECT_THAT(
        Rules(unfolded), ElementsAre("2 file=1", "6 file=2", "3 section=$name$", "4 file=3")
    );
    EXPECT_THAT(unfolded.cycles, IsEmpty());
}

TEST_F(KScriptTest, TheDefaultPathIsNoRule) {
    const KScript script = Script("[install]\ndefaultPath.$os$=/opt/x\nfile=1\n");
    EXPECT_THAT(Rules(script.Unfold("install", Expand)), ElementsAre("3 file=1"));
    EXPECT_EQ(script.GetValue("install", "defaultPath.$os$", "other"), "/opt/x");
    EXPECT_EQ(script.GetValue("install", "defaultPath.lin", "other"), "other");
}

TEST_F(KScriptTest, ACycleIsToldAndPassedOver) {
    const KScript script =
        Script("[install]\nsection=a\n[a]\nsection=b\nfile=1\n[b]\nsection= a\nfile=2\n");
    const KScript::Unfolded unfolded = script.Unfold("install", Expand);
    ASSERT_EQ(unfolded.cycles.size(), 1U);
    EXPECT_EQ(unfolded.cycles[0].line.number, 7U);
    EXPECT_THAT(unfolded.cycles[0].names, ElementsAre("a", "b", "a"));
    EXPECT_THAT(
        Rules(unfolded),
        ElementsAre("7 section=a", "8 file=2", "4 section=b", "5 file=1", "2 section=a")
    );
}

/// [install], which includes s1, which includes s2 ...: so many sections in each other.
std::string Nested(int depth) {
    std::string text = "[install]\n";
    for (int level = 1; level < depth; ++level) {
        text += "section=s" + std::to_string(level) + "\n[s" + std::to_string(level) + "]\n";
    }
    return text + "file=1\n";
}

TEST_F(KScriptTest, SectionsMayBeAThousandDeep) {
    const KScript script = Script(Nested(1000));
    EXPECT_EQ(script.Unfold("install", Expand).rules.size(), 1000U);
}

TEST_F(KScriptTest, DeeperSectionsAreRefusedWithTheirWay) {
    for (const int depth : {1001, 12000, 100000}) {
        const KScript script = Script(Nested(depth));
        try {
            static_cast<void>(script.Unfold("install", Expand));
            FAIL() << "it was unfolded";
        } catch (const KSETUP::KSetupFailure& failure) {
            EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::malformedScript);
            EXPECT_EQ(
                std::string(failure.what()),
                tree.Path("install.ini") +
                    ":2000: sections include each other more than 1000 deep: [install] -> [s1] -> "
                    "[s2] -> (995 more) -> [s998] -> [s999] -> [s1000]. Include them one behind "
                    "the other in the section that needs them."
            );
        }
    }
}

TEST_F(KScriptTest, OfCirclesTheFirstHundredAreTold) {
    std::string text = "[install]\n";
    for (int line = 0; line < 200; ++line) {
        text += "section=install\n";
    }
    const KScript::Unfolded unfolded = Script(text).Unfold("install", Expand);
    EXPECT_EQ(unfolded.cycles.size(), 100U);
    EXPECT_EQ(unfolded.rules.size(), 200U);
}

TEST_F(KScriptTest, LongLinesThatAreIncludedOverAndOverEndWithAWord) {
    std::string text = "[install]\n";
    for (int line = 0; line < 100; ++line) {
        text += "section=s\n";
    }
    const KScript script = Script(text + "[s]\nfile=" + std::string(1U << 20U, 'x') + "\n");
    EXPECT_THROW(static_cast<void>(script.Unfold("install", Expand)), KSETUP::KSetupFailure);
}

TEST_F(KScriptTest, SectionsThatDoubleEachOtherEndWithAWord) {
    std::string text = "[install]\nsection=s0\n";
    for (int level = 0; level < 20; ++level) {
        const std::string next = "section=s" + std::to_string(level + 1) + "\n";
        text += "[s" + std::to_string(level) + "]\n" + next + next;
    }
    const KScript script = Script(text + "[s20]\nfile=1\n");
    try {
        static_cast<void>(script.Unfold("install", Expand));
        FAIL() << "it was unfolded";
    } catch (const KSETUP::KSetupFailure& failure) {
        EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::malformedScript);
        EXPECT_THAT(failure.what(), ::testing::HasSubstr("more than 21280 rules"));
    }
}

TEST_F(KScriptTest, FieldsOfFilesAreExpandedOneByOne) {
    EXPECT_THAT(Fields("file", "copy,,$two$,x$none$"), ElementsAre("copy", "1,2", "x"));
    EXPECT_THAT(Fields("file", "$name$,$none$,b"), ElementsAre("$name$", "", "b"));
}

TEST_F(KScriptTest, ARuleHasTheOperationThatTheEngineReads) {
    using KINS::KRuleOperation;
    using KINS::KRuleType;
    const auto read = [](const char* type, const char* value) {
        return KSETUP::RuleOf(KScriptLine{1, "install", type, value}, Expand);
    };
    EXPECT_TRUE(read("file", "copy,a,b").Is(KRuleType::File, KRuleOperation::Copy));
    EXPECT_TRUE(read("directory", "DELETE,/a").Is(KRuleType::Directory, KRuleOperation::Delete));
    EXPECT_TRUE(read("file", "COPY,a,b").Is(KRuleType::File, KRuleOperation::None));
    EXPECT_TRUE(read("file", "copy,a").Is(KRuleType::File, KRuleOperation::None));
    EXPECT_TRUE(read("section", "copy").Is(KRuleType::Section, KRuleOperation::None));
    EXPECT_TRUE(read("fiel", "copy,a,b").Is(KRuleType::None, KRuleOperation::None));
}

TEST_F(KScriptTest, LinesOfDirectoriesAndProfilesAreExpandedAsAWhole) {
    EXPECT_THAT(Fields("directory", "create,$two$,$none$"), ElementsAre("create", "1", "2"));
    EXPECT_THAT(Fields("profile", "put,$two$,$name$"), ElementsAre("put", "1", "2", "a"));
    EXPECT_THAT(Fields("section", "$two$,x"), ElementsAre("1,2,x"));
}

TEST(ScriptTextTest, ColumnsCountBytesFromOne) {
    EXPECT_EQ(ColumnOfField("file=copy,,b", 0), 6U);
    EXPECT_EQ(ColumnOfField("file=copy,,b", 1), 11U);
    EXPECT_EQ(ColumnOfField("file=copy,,b", 2), 12U);
    EXPECT_EQ(ColumnOfField("file=copy,,b", 3), 6U);
    EXPECT_EQ(ColumnOfField("  file = \tcopy,b", 0), 11U);
    EXPECT_EQ(ColumnOfField("file", 0), 1U);
    EXPECT_EQ(ColumnOfField("file=", 0), 6U);
}

TEST(ScriptTextTest, WrittenFieldsKeepEmptyOnesAndBlanks) {
    EXPECT_THAT(WrittenFields("copy,, b,"), ElementsAre("copy", "", " b", ""));
    EXPECT_THAT(WrittenFields(""), ElementsAre(""));
}

} // namespace
