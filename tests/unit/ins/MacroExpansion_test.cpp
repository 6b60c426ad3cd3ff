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
enum class Place {
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

struct Row {
    const char* name;
    std::unique_ptr<KInstallRule> (*make)(KINS::KInstallRuleManagerBase*, const std::string&);
    const char* line; ///< "X" stands for the text, "@T@" for the tree
    When when;
    Place place;
    const char* seen; ///< "X" stands for what became of the text
};

class MacroExpansionTest : public KTEST::RuleTest, public ::testing::WithParamInterface<Row> {
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
    void Live(const Row& row) {
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
    std::string Seen(Place place) const {
        switch (place) {
        case Place::Description:
            return description;
        case Place::Refusal:
            return errorInfo;
        case Place::Status:
            return statuses.All().empty() ? "" : statuses.All().front().text;
        case Place::Log:
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
    const Row& row = GetParam();
    if (row.place == Place::Profile) { // for the rows that take a key away
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
        Row{"FileLine", file, "X", When::Never, Place::Refusal, "X"},
        Row{"DirectoryLine", directory, "X", When::Constructor, Place::Refusal, "X"},
        Row{"SectionLine",
            section,
            "X",
            When::Constructor,
            Place::Description,
            "Include section X"},
        Row{"ProfileLine", profile, "X", When::Constructor, Place::Refusal, "X"},
        Row{"ProcessLine", process, "X", When::Never, Place::Refusal, "X"},
        Row{"ProcessDescription",
            process,
            "start,: X",
            When::Never,
            Place::Description,
            "Execute command start,: X"},
        Row{"ServiceLine",
            service,
            "X",
            When::Never,
            Place::Log,
            "KINS::KServiceRule: Invalid service rule detected X"},
        Row{"ServiceDescription",
            service,
            "start,X",
            When::Never,
            Place::Description,
            "Service control start,X"},

        // Operations
        Row{"FileOperation",
            file,
            "X,a,/b,/c",
            When::Never,
            Place::Description,
            "File X /b/a to /c"},
        Row{"DirectoryOperation",
            directory,
            "X,/a",
            When::Constructor,
            Place::Description,
            "Create path /a"},
        Row{"ProfileOperation", profile, "X,/a", When::Constructor, Place::Refusal, "X"},
        Row{"ServiceAction",
            service,
            "X,a",
            When::Never,
            Place::Log,
            "KINS::KServiceRule: Unrecognized service control rule X"},

        // Fields of a file rule
        Row{"FileName",
            file,
            "copy,X,/nowhere,/to",
            When::ParseRule,
            Place::Description,
            "File copy /nowhere/X to /to"},
        Row{"FileSource",
            file,
            "copy,a,/nowhere/X,/to",
            When::ParseRule,
            Place::Description,
            "File copy /nowhere/X/a to /to"},
        Row{"FileTarget",
            file,
            "copy,a,/nowhere,/to/X",
            When::ParseRule,
            Place::Description,
            "File copy /nowhere/a to /to/X"},
        Row{"FileTargetName",
            file,
            "copy,a,/nowhere,/to,X",
            When::ParseRule,
            Place::Status,
            "Copying file /to/X"},
        Row{"FileTargetNameOfItsOwn",
            file,
            "copy,X,/nowhere,/to",
            When::ParseRule,
            Place::Status,
            "Copying file /to/X"},

        // Fields of a directory rule
        Row{"DirectoryPath",
            directory,
            "delete,/nowhere/X",
            When::Constructor,
            Place::Description,
            "Delete path /nowhere/X"},
        Row{"DirectoryAtWork",
            directory,
            "create,@T@/X",
            When::Constructor,
            Place::Status,
            "Creating directory @T@/X"},

        // Fields of a profile rule
        Row{"ProfilePath",
            profile,
            "create,@T@/X",
            When::Constructor,
            Place::Description,
            "Create profile @T@/X"},
        Row{"ProfileKey",
            profile,
            "put,@T@/p,s,X,v",
            When::ConstructorAndParseRule,
            Place::Description,
            "Put profile option X=v"},
        Row{"ProfileValue",
            profile,
            "put,@T@/p,s,k,X",
            When::ConstructorAndParseRule,
            Place::Description,
            "Put profile option k=X"},
        Row{"ProfileMatch",
            profile,
            "remove_file,@T@/p,s,X",
            When::ConstructorAndParseRule,
            Place::Description,
            "Put profile option =X"},
        Row{"ProfileSection",
            profile,
            "put,@T@/profile,X,key,v",
            When::ConstructorAndParseRule,
            Place::Profile,
            "[X]\nkey=v\n"},
        Row{"ProfileSectionOfFiles",
            profile,
            "remove_file,@T@/profile,X,here",
            When::ConstructorAndParseRule,
            Place::Profile,
            "[X]\n"},

        // Fields of a process rule
        Row{"ProcessCommand",
            process,
            "start,: X",
            When::ParseRuleAndExecute,
            Place::Status,
            "Starting process : X"},
        Row{"ProcessCommandInTheLog",
            process,
            "start,: X",
            When::ParseRuleAndExecute,
            Place::Log,
            "KINS::KProcessRule: Starting process: : X"},
        Row{"ProcessProgram",
            process,
            "stop,@T@/X",
            When::ParseRuleAndExecute,
            Place::Status,
            "Stopping process @T@/X"},

        // Fields of a service rule, seen where they are logged. No service can have these names, so
        // nothing comes of it.
        Row{"ServiceName",
            service,
            "start,/X",
            When::ParseRule,
            Place::Log,
            "KINS::KServiceRule: Starting service: /X"},
        Row{"ServiceNameToStop",
            service,
            "stop,/X",
            When::ParseRule,
            Place::Log,
            "KINS::KServiceRule: Stopping service: /X"}
    ),
    KTEST::NameOfRow()
);

/// A creation that fails has two entries; the first tells the fields.
class MacroExpansionOfACreationTest : public MacroExpansionTest {};

TEST_P(MacroExpansionOfACreationTest, IsDoneWhenParsed) {
    const Row& row = GetParam();
    Live(row);
    EXPECT_THAT(LogLines(), ::testing::Contains(Fill(row.seen, row.when)));
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    MacroExpansionOfACreationTest,
    ::testing::Values(
        Row{"ServiceDisplayName",
            service,
            "install,/,X,b,c",
            When::ParseRule,
            Place::Log,
            "KINS::KServiceRule: Installing service / X b c"},
        Row{"ServiceProgram",
            service,
            "install,/,a,X,c",
            When::ParseRule,
            Place::Log,
            "KINS::KServiceRule: Installing service / a X c"},
        Row{"ServiceArguments",
            service,
            "install,/,a,b,X",
            When::ParseRule,
            Place::Log,
            "KINS::KServiceRule: Installing service / a b X"}
    ),
    KTEST::NameOfRow()
);

// What the rows above cannot show: actions that are no field of any text

TEST_F(MacroExpansionTest, OfAnActionIsDoneForLinesThatAreExpandedWhole) {
    GivenKey("action", "delete");
    const Row row{"", directory, "$action#$,/nowhere", When::Never, Place::Description, ""};
    Live(row);
    EXPECT_EQ(description, "Delete path /nowhere");
}

TEST_F(MacroExpansionTest, OfAnActionIsNeverDoneForProcesses) {
    GivenKey("action", "start");
    const Row row{"", process, "$action#$,: X", When::Never, Place::Status, ""};
    Live(row);
    EXPECT_EQ(errorCode, 0U);
    EXPECT_EQ(Seen(row.place), "");
}

} // namespace
