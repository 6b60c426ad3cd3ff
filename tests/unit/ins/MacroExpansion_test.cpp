// SPDX-License-Identifier: MIT
//
// When the macros of a rule line are expanded: one table for all fields of all rule types.
//
// Every field is given the same text of five macros, whose values change between the constructor,
// the parsing and the execution of a rule, so that what became of it tells when it was expanded:
//
//     one      has another value at each of the three
//     nested   always has the value "$one$", twice always "$nested$"
//     late     is unknown to the constructor, latest to the constructor and the parsing
#include "../../support/EngineRig.h"
#include "../../support/NameOfRow.h"

#include <ins/KDirectoryRule.h>
#include <ins/KFileRule.h>
#include <ins/KProcessRule.h>
#include <ins/KProfileRule.h>
#include <ins/KSectionRule.h>
#include <ins/KServiceRule.h>
#include <sup++/KError.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <memory>
#include <string>

namespace {

using KINS::KInstallRule;

enum class When { Never, Constructor, ParseRule, ConstructorAndParseRule, ParseRuleAndExecute };

/// What becomes of the text. "#" makes the names a test's own: keys hold for the whole process.
std::string OutcomeOf(When when) {
    switch (when) {
    case When::Never:
        return "$one#$-$nested#$-$twice#$-$late#$-$latest#$";
    case When::Constructor:
        return "1c-$one#$-$nested#$-$late#$-$latest#$";
    case When::ParseRule:
        return "1p-$one#$-$nested#$-lp-$latest#$";
    case When::ConstructorAndParseRule:
        return "1c-1p-$one#$-lp-$latest#$";
    default:
        return "1p-1e-$one#$-lp-te";
    }
}

/// Where a field can be seen.
enum class TextPlace {
    Description, ///< of the parsed rule
    Refusal,     ///< the information of the error with which the line is refused
    Status,      ///< the first status of the execution
    Log,         ///< the last entry of the rule's own
    Profile      ///< what is in the file "profile" behind the execution
};

template <class Rule>
std::unique_ptr<KInstallRule>
Make(KINS::KInstallRuleManagerBase* manager, const std::string& line) {
    return std::make_unique<Rule>(manager, line);
}

struct ExpansionRow {
    const char* name;
    std::unique_ptr<KInstallRule> (*make)(KINS::KInstallRuleManagerBase*, const std::string&);
    const char* line; ///< "X" stands for the text, "@T@" for the tree
    When when;
    TextPlace place;
    const char* seen; ///< "X" stands for what became of the text
};

class MacroExpansionTest : public KTEST::RuleTest,
                           public ::testing::WithParamInterface<ExpansionRow> {
  protected:
    MacroExpansionTest() {
        static int count = 0;
        number = std::to_string(++count);
    }

    std::string Fill(const char* pattern, When when) const {
        std::string text = pattern;
        const std::size_t at = text.find('X');
        if (at != std::string::npos) {
            text.replace(at, 1, OutcomeOf(when));
        }
        for (std::size_t mark = 0; (mark = text.find('#')) != std::string::npos;) {
            text.replace(mark, 1, number);
        }
        return InTree(text); // last: its name is any letters
    }
    void GivenKey(const char* name, const std::string& value) const {
        KTEST::EngineWorld::GivenKey(name + number, value);
    }
    void GivenStage(const std::string& letter) const {
        GivenKey("one", "1" + letter);
        GivenKey("nested", "$one" + number + "$");
        GivenKey("twice", "$nested" + number + "$");
        if (letter != "c") {
            GivenKey("late", "l" + letter);
        }
        if (letter == "e") {
            GivenKey("latest", "te");
        }
    }

    /// The whole life of a rule. What is thrown ends it and is kept.
    void Live(const ExpansionRow& row) {
        try {
            GivenStage("c");
            const auto rule = row.make(&manager, Fill(row.line, When::Never));
            GivenStage("p");
            rule->Initialize();
            description = rule->Description().c_str();
            GivenStage("e");
            rule->Execute();
            EXPECT_EQ(description, rule->Description().c_str()) << "an execution changes no field";
        } catch (const KSUP::KError& error) {
            errorCode = error.GetCode();
            errorInfo = error.GetInfo().GetString().c_str();
        }
    }
    std::string LastLog() const {
        const auto own = LogLines();
        const auto last = std::find_if(own.rbegin(), own.rend(), [](const std::string& line) {
            return !line.starts_with("KINS::KInstallRuleManager:");
        });
        return last != own.rend() ? *last : "";
    }
    std::string Seen(TextPlace place) const {
        switch (place) {
        case TextPlace::Description:
            return description;
        case TextPlace::Refusal:
            return errorInfo;
        case TextPlace::Status:
            return statuses.All().empty() ? "" : statuses.All().front().text;
        case TextPlace::Log:
            return LastLog();
        default:
            return tree.Exists("profile") ? tree.Read("profile") : "";
        }
    }

    std::string number;
    std::string description;
    std::string errorInfo;
    unsigned errorCode = 0;
};

TEST_P(MacroExpansionTest, OfAFieldIsDoneWhenItsRuleTypeSays) {
    const ExpansionRow& row = GetParam();
    if (row.place == TextPlace::Profile) { // for the rows that take a key away
        tree.Write("profile", "[" + Fill("X", row.when) + "]\nkey=/nowhere/here\n");
    }
    Live(row);
    EXPECT_EQ(Fill(row.seen, row.when), Seen(row.place))
        << "error " << errorCode << " " << errorInfo;
}

constexpr auto file = Make<KINS::KFileRule>;
constexpr auto directory = Make<KINS::KDirectoryRule>;
constexpr auto section = Make<KINS::KSectionRule>;
constexpr auto profile = Make<KINS::KProfileRule>;
constexpr auto process = Make<KINS::KProcessRule>;
constexpr auto service = Make<KINS::KServiceRule>;

INSTANTIATE_TEST_SUITE_P(
    Of,
    MacroExpansionTest,
    ::testing::Values(
        // The line as it is stored
        ExpansionRow{"FileLine", file, "X", When::Never, TextPlace::Refusal, "X"},
        ExpansionRow{"DirectoryLine", directory, "X", When::Constructor, TextPlace::Refusal, "X"},
        ExpansionRow{
            "SectionLine",
            section,
            "X",
            When::Constructor,
            TextPlace::Description,
            "Include section X"},
        ExpansionRow{"ProfileLine", profile, "X", When::Constructor, TextPlace::Refusal, "X"},
        ExpansionRow{"ProcessLine", process, "X", When::Never, TextPlace::Refusal, "X"},
        ExpansionRow{
            "ProcessDescription",
            process,
            "start,: X",
            When::Never,
            TextPlace::Description,
            "Execute command start,: X"},
        ExpansionRow{
            "ServiceLine",
            service,
            "X",
            When::Never,
            TextPlace::Log,
            "KINS::KServiceRule: Invalid service rule detected X"},
        ExpansionRow{
            "ServiceDescription",
            service,
            "start,X",
            When::Never,
            TextPlace::Description,
            "Service control start,X"},

        // Operations
        ExpansionRow{
            "FileOperation",
            file,
            "X,a,/b,/c",
            When::Never,
            TextPlace::Description,
            "File X /b/a to /c"},
        ExpansionRow{
            "DirectoryOperation",
            directory,
            "X,/a",
            When::Constructor,
            TextPlace::Description,
            "Create path /a"},
        ExpansionRow{
            "ProfileOperation", profile, "X,/a", When::Constructor, TextPlace::Refusal, "X"},
        ExpansionRow{
            "ServiceAction",
            service,
            "X,a",
            When::Never,
            TextPlace::Log,
            "KINS::KServiceRule: Unrecognized service control rule X"},

        // Fields of a file rule
        ExpansionRow{
            "FileName",
            file,
            "copy,X,/nowhere,/to",
            When::ParseRule,
            TextPlace::Description,
            "File copy /nowhere/X to /to"},
        ExpansionRow{
            "FileSource",
            file,
            "copy,a,/nowhere/X,/to",
            When::ParseRule,
            TextPlace::Description,
            "File copy /nowhere/X/a to /to"},
        ExpansionRow{
            "FileTarget",
            file,
            "copy,a,/nowhere,/to/X",
            When::ParseRule,
            TextPlace::Description,
            "File copy /nowhere/a to /to/X"},
        ExpansionRow{
            "FileTargetName",
            file,
            "copy,a,/nowhere,/to,X",
            When::ParseRule,
            TextPlace::Status,
            "Copying file /to/X"},
        ExpansionRow{
            "FileTargetNameOfItsOwn",
            file,
            "copy,X,/nowhere,/to",
            When::ParseRule,
            TextPlace::Status,
            "Copying file /to/X"},

        // Fields of a directory rule
        ExpansionRow{
            "DirectoryPath",
            directory,
            "delete,/nowhere/X",
            When::Constructor,
            TextPlace::Description,
            "Delete path /nowhere/X"},
        ExpansionRow{
            "DirectoryAtWork",
            directory,
            "create,@T@/X",
            When::Constructor,
            TextPlace::Status,
            "Creating directory @T@/X"},

        // Fields of a profile rule
        ExpansionRow{
            "ProfilePath",
            profile,
            "create,@T@/X",
            When::Constructor,
            TextPlace::Description,
            "Create profile @T@/X"},
        ExpansionRow{
            "ProfileKey",
            profile,
            "put,@T@/p,s,X,v",
            When::ConstructorAndParseRule,
            TextPlace::Description,
            "Put profile option X=v"},
        ExpansionRow{
            "ProfileValue",
            profile,
            "put,@T@/p,s,k,X",
            When::ConstructorAndParseRule,
            TextPlace::Description,
            "Put profile option k=X"},
        ExpansionRow{
            "ProfileMatch",
            profile,
            "remove_file,@T@/p,s,X",
            When::ConstructorAndParseRule,
            TextPlace::Description,
            "Put profile option =X"},
        ExpansionRow{
            "ProfileSection",
            profile,
            "put,@T@/profile,X,key,v",
            When::ConstructorAndParseRule,
            TextPlace::Profile,
            "[X]\nkey=v\n"},
        ExpansionRow{
            "ProfileSectionOfFiles",
            profile,
            "remove_file,@T@/profile,X,here",
            When::ConstructorAndParseRule,
            TextPlace::Profile,
            "[X]\n"},

        // Fields of a process rule
        ExpansionRow{
            "ProcessCommand",
            process,
            "start,: X",
            When::ParseRuleAndExecute,
            TextPlace::Status,
            "Starting process : X"},
        ExpansionRow{
            "ProcessCommandInTheLog",
            process,
            "start,: X",
            When::ParseRuleAndExecute,
            TextPlace::Log,
            "KINS::KProcessRule: Starting process: : X"},
        ExpansionRow{
            "ProcessProgram",
            process,
            "stop,@T@/X",
            When::ParseRuleAndExecute,
            TextPlace::Status,
            "Stopping process @T@/X"},

        // Fields of a service rule, seen where they are logged. No service can have these names, so
        // nothing comes of it.
        ExpansionRow{
            "ServiceName",
            service,
            "start,/X",
            When::ParseRule,
            TextPlace::Log,
            "KINS::KServiceRule: Starting service: /X"},
        ExpansionRow{
            "ServiceNameToStop",
            service,
            "stop,/X",
            When::ParseRule,
            TextPlace::Log,
            "KINS::KServiceRule: Stopping service: /X"}
    ),
    KTEST::NameOfRow()
);

/// A creation that fails has two entries; the first tells the fields.
class MacroExpansionOfACreationTest : public MacroExpansionTest {};

TEST_P(MacroExpansionOfACreationTest, IsDoneWhenParsed) {
    const ExpansionRow& row = GetParam();
    Live(row);
    EXPECT_THAT(LogLines(), ::testing::Contains(Fill(row.seen, row.when)));
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    MacroExpansionOfACreationTest,
    ::testing::Values(
        ExpansionRow{
            "ServiceDisplayName",
            service,
            "install,/,X,b,c",
            When::ParseRule,
            TextPlace::Log,
            "KINS::KServiceRule: Installing service / X b c"},
        ExpansionRow{
            "ServiceProgram",
            service,
            "install,/,a,X,c",
            When::ParseRule,
            TextPlace::Log,
            "KINS::KServiceRule: Installing service / a X c"},
        ExpansionRow{
            "ServiceArguments",
            service,
            "install,/,a,b,X",
            When::ParseRule,
            TextPlace::Log,
            "KINS::KServiceRule: Installing service / a b X"}
    ),
    KTEST::NameOfRow()
);

// What the rows above cannot show: actions that are no field of any text

TEST_F(MacroExpansionTest, OfAnActionIsDoneForLinesThatAreExpandedWhole) {
    GivenKey("action", "delete");
    const ExpansionRow row{
        "", directory, "$action#$,/nowhere", When::Never, TextPlace::Description, ""};
    Live(row);
    EXPECT_EQ(description, "Delete path /nowhere");
}

TEST_F(MacroExpansionTest, OfAnActionIsNeverDoneForProcesses) {
    GivenKey("action", "start");
    const ExpansionRow row{"", process, "$action#$,: X", When::Never, TextPlace::Status, ""};
    Live(row);
    EXPECT_EQ(errorCode, 0U);
    EXPECT_EQ(Seen(row.place), "");
}

} // namespace
