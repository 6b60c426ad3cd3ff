// SPDX-License-Identifier: MIT
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/NameOfRow.h"

#include <ins/KRuleLine.h>

#include <gmock/gmock.h>

namespace {

using KINS::KRuleField;
using KINS::KRuleLine;
using KINS::KRuleOperation;
using KINS::KRuleType;
using KSUP::KString;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

/// Puts "<>" around what it expands, so that the number of expansions is seen.
KString Mark(const KString& text) {
    return "<" + text + ">";
}

KString AsItIs(const KString& text) {
    return text;
}

KRuleLine Read(const char* type, const char* line) {
    return KRuleLine::Read(type, line, AsItIs);
}

struct Row {
    const char* name;
    const char* type;
    const char* line;
    KRuleOperation operation;
    const char* operationText;
    std::vector<std::pair<KRuleField, const char*>> fields;
};

class KRuleLineFieldsTest : public ::testing::TestWithParam<Row> {};

TEST_P(KRuleLineFieldsTest, AreReadWithTheirMeaning) {
    const KRuleLine line = KRuleLine::Read(GetParam().type, GetParam().line, Mark);
    EXPECT_EQ(line.GetProblem(), KRuleLine::Problem::None);
    EXPECT_EQ(line.GetProblemText(), "");
    EXPECT_EQ(line.GetOperation(), GetParam().operation);
    EXPECT_EQ(line.GetOperationText(), GetParam().operationText);
    std::vector<std::pair<KRuleField, std::string>> fields;
    for (const KRuleLine::Field& field : line.GetFields()) {
        fields.emplace_back(field.meaning, field.text.c_str());
        EXPECT_EQ(line.Get(field.meaning), field.meaning == KRuleField::None ? "" : field.text);
    }
    EXPECT_THAT(fields, ElementsAreArray(GetParam().fields));
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    KRuleLineFieldsTest,
    ::testing::Values(
        Row{"ACopy",
            "file",
            "copy,a,/b,,/c,d",
            KRuleOperation::Copy,
            "copy",
            {{KRuleField::Operation, "copy"},
             {KRuleField::FileName, "<a>"},
             {KRuleField::SourceDirectory, "</b>"},
             {KRuleField::TargetDirectory, "</c>"},
             {KRuleField::TargetName, "<d>"}}},
        Row{"AnOperationInAnotherCase",
            "file",
            "Copy,a,/b",
            KRuleOperation::None,
            "Copy",
            {{KRuleField::Operation, "Copy"},
             {KRuleField::FileName, "<a>"},
             {KRuleField::SourceDirectory, "</b>"}}},
        Row{"ADirectory",
            "directory",
            "CREATE,/b",
            KRuleOperation::None,
            "<create",
            {{KRuleField::Operation, "<CREATE"}, {KRuleField::Directory, "/b>"}}},
        Row{"ASection",
            "section",
            "a,b,,c",
            KRuleOperation::None,
            "",
            {{KRuleField::SectionName, "<a,b,,c>"}}},
        Row{"AProcess",
            "process",
            "start,run it",
            KRuleOperation::Start,
            "start",
            {{KRuleField::Operation, "start"}, {KRuleField::Command, "<run it>"}}},
        Row{"AService",
            "service",
            "INSTALL,n,d,p,a",
            KRuleOperation::Install,
            "install",
            {{KRuleField::Operation, "INSTALL"},
             {KRuleField::ServiceName, "<n>"},
             {KRuleField::DisplayName, "<d>"},
             {KRuleField::Program, "<p>"},
             {KRuleField::Arguments, "<a>"}}},
        Row{"AServiceWithAnUnknownOperation",
            "service",
            "restart,n",
            KRuleOperation::None,
            "restart",
            {{KRuleField::Operation, "restart"}, {KRuleField::ServiceName, "<n>"}}}
    ),
    KTEST::NameOfRow()
);

TEST(KRuleLineTest, APutIsExpandedAsALineAndItsOptionOnceMore) {
    const KRuleLine line = KRuleLine::Read("profile", "put,/p,s,k,v", [](const KString& text) {
        return text == "put,/p,s,k,v" ? text : Mark(text);
    });
    EXPECT_EQ(line.GetOperation(), KRuleOperation::Put);
    EXPECT_EQ(line.Get(KRuleField::ProfilePath), "/p");
    EXPECT_EQ(line.Get(KRuleField::Section), "<s>");
    EXPECT_EQ(line.Get(KRuleField::Key), "<k>");
    EXPECT_EQ(line.Get(KRuleField::Value), "<v>");
    EXPECT_EQ(line.Get(KRuleField::Match), "");
}

TEST(KRuleLineTest, ARemovalOfListedFilesHasAMatchAndNoKey) {
    const KRuleLine line = Read("profile", "Remove_File,/p,s,.so");
    EXPECT_EQ(line.GetOperation(), KRuleOperation::RemoveFile);
    EXPECT_EQ(line.Get(KRuleField::Section), "s");
    EXPECT_EQ(line.Get(KRuleField::Match), ".so");
    EXPECT_EQ(line.Get(KRuleField::Key), "");
}

TEST(KRuleLineTest, FieldsThatAnOperationDoesNotTakeMeanNothing) {
    for (const char* text : {"put,/p,s,k", "remove_file,/p,s,k,v", "create,/p,s,k"}) {
        const KRuleLine line = Read("profile", text);
        EXPECT_EQ(line.GetProblem(), KRuleLine::Problem::None) << text;
        EXPECT_EQ(line.Get(KRuleField::ProfilePath), "/p") << text;
        EXPECT_EQ(line.Get(KRuleField::Section), "") << text;
        EXPECT_EQ(line.GetFields().back().meaning, KRuleField::None) << text;
    }
}

TEST(KRuleLineTest, ACopyKeepsItsNameUnlessItHasAnother) {
    EXPECT_EQ(Read("file", "copy,a,/b,/c").Get(KRuleField::TargetName), "a");
    EXPECT_EQ(Read("file", "copy,a,/b,/c,d").Get(KRuleField::TargetName), "d");
    EXPECT_EQ(Read("process", "start,a").Get(KRuleField::TargetName), "");
}

struct ProblemRow {
    const char* name;
    const char* type;
    const char* line;
    KRuleLine::Problem problem;
    const char* words;
};

class KRuleLineProblemTest : public KTEST::RuleTest,
                             public ::testing::WithParamInterface<ProblemRow> {};

TEST_P(KRuleLineProblemTest, IsToldInWordsAndIsWhyTheEngineRefusesTheLine) {
    const KRuleLine line = Read(GetParam().type, GetParam().line);
    EXPECT_EQ(line.GetProblem(), GetParam().problem);
    EXPECT_EQ(line.GetProblemText(), GetParam().words);
    const KSUP::KError error = RefusalOf(GetParam().type, GetParam().line);
    EXPECT_EQ(error.GetKind(), KSUP::KErrorKind::Rule);
    EXPECT_EQ(error.GetReason(), GetParam().words);
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    KRuleLineProblemTest,
    ::testing::Values(
        ProblemRow{
            "AKeyInCapitals",
            "File",
            "copy,a,/b",
            KRuleLine::Problem::UnknownType,
            "\"File\" is no type of rule. They are file, directory, section, process, service and "
            "profile, in lower case."},
        ProblemRow{
            "ShortFileRule",
            "file",
            "copy,,a",
            KRuleLine::Problem::FieldCount,
            "a file rule has 3 to 5 fields, and this line 2. Empty fields do not count."},
        ProblemRow{
            "EmptyDirectoryRule",
            "directory",
            "",
            KRuleLine::Problem::FieldCount,
            "a directory rule has 2 fields, and this line 0. Empty fields do not count."},
        ProblemRow{
            "LongProcessRule",
            "process",
            "start,a,b",
            KRuleLine::Problem::FieldCount,
            "a process rule has 2 fields, and this line 3. Empty fields do not count."},
        ProblemRow{
            "ServiceRuleOfFour",
            "service",
            "install,a,b,c",
            KRuleLine::Problem::FieldCount,
            "a service rule has 2 or 5 fields, and this line 4. Empty fields do not count."},
        ProblemRow{
            "ProfileRuleOfThree",
            "profile",
            "put,/p,s",
            KRuleLine::Problem::FieldCount,
            "a profile rule has 2, 4 or 5 fields, and this line 3. Empty fields do not count."},
        ProblemRow{
            "UnknownProfileOperation",
            "profile",
            "Rename,/p",
            KRuleLine::Problem::UnknownOperation,
            "\"Rename\" is no operation of a profile rule. They are create, put and remove_file."}
    ),
    KTEST::NameOfRow()
);

TEST(KRuleLineTest, TheTypesAreThoseOfTheEngineInTheirOrder) {
    std::vector<std::string> all;
    for (const KINS::KRuleTypeInfo& type : KRuleLine::GetTypes()) {
        std::string line = type.keyword;
        for (const KINS::KRuleOperationInfo& operation : type.operations) {
            line +=
                std::string(" ") + operation.word + "/" + std::to_string(operation.fields.size());
        }
        all.push_back(line);
        EXPECT_EQ(KRuleLine::FindType(type.keyword), &type);
    }
    EXPECT_THAT(
        all,
        ElementsAre(
            "file copy/5 delete/3 symlink/5",
            "directory create/2 delete/2",
            "section",
            "process start/2 stop/2",
            "service install/5 start/2 stop/2 remove/2",
            "profile create/2 put/5 remove_file/4"
        )
    );
    EXPECT_EQ(KRuleLine::FindType("Directory"), nullptr);
}

TEST(KRuleLineTest, NothingIsExpandedOfALineThatDoesNotLoad) {
    std::vector<std::string> expanded;
    const auto note = [&](const KString& text) {
        expanded.emplace_back(text.c_str());
        return text;
    };
    KRuleLine::Read("file", "copy,a", note);
    KRuleLine::Read("nonsense", "copy,a", note);
    EXPECT_THAT(expanded, IsEmpty());
}

} // namespace
