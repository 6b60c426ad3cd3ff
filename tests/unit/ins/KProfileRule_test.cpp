// SPDX-License-Identifier: MIT
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/NameOfRow.h"
#include "../../support/SlotOf.h"

#include <ins/KProfileRule.h>
#include <sup++/KProfile.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string>
#include <type_traits>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using KINS::KProfileRule;
using KTEST::Place;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KProfileRuleTest : public KTEST::RuleTest {};

TEST_F(KProfileRuleTest, OverridesInTheSlotsOfItsBase) {
    using KTEST::SlotOf;
    EXPECT_EQ(SlotOf(&KProfileRule::Execute), 2);
    EXPECT_EQ(SlotOf(&KProfileRule::Description), 4);
    EXPECT_EQ(SlotOf(&KProfileRule::ParseRule), 6);
}

TEST_F(KProfileRuleTest, IsAnInstallRuleThatCounts) {
    const KProfileRule rule(&manager, "create,/x");
    EXPECT_STREQ(rule.GetClassTag(), "KInstallRule");
    EXPECT_TRUE(rule.ShouldCount());
    EXPECT_FALSE(std::is_copy_constructible_v<KProfileRule>);
}

struct RefusedProfileLine {
    const char* name;
    const char* line;
    unsigned atLine;
    const char* information;
};

class KProfileRuleRefusalTest : public KTEST::RuleTest,
                                public ::testing::WithParamInterface<RefusedProfileLine> {};

TEST_P(KProfileRuleRefusalTest, IsError7000AndNoRule) {
    const KSUP::KError error = RefusalOf("profile", GetParam().line);
    EXPECT_EQ(
        "48 7000.0 ins/KProfileRule:" + std::to_string(GetParam().atLine) + " ParseRule \"" +
            GetParam().information + '"',
        Place(error)
    );
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
    EXPECT_EQ(manager.GetRuleCount(), 0U);
    EXPECT_THAT(Added(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    ALineWith,
    KProfileRuleRefusalTest,
    ::testing::Values(
        RefusedProfileLine{"NoField", "", 57, ""},
        RefusedProfileLine{"OneField", "create", 57, "create"},
        RefusedProfileLine{
            "ThreeFields", "put,/etc/app.ini,General", 57, "put,/etc/app.ini,General"},
        RefusedProfileLine{"ThreeFieldsWithAMacro", "put,$os$,General", 57, "put,lin,General"},
        RefusedProfileLine{"ThreeFieldsOfAnUnknownOperation", "rename,a,b", 57, "rename,a,b"},
        RefusedProfileLine{"SixFields", "put,a,b,c,d,e", 57, "put,a,b,c,d,e"},
        RefusedProfileLine{"AValueThatIsEmpty", "remove_file,a,b,", 57, "remove_file,a,b,"},
        RefusedProfileLine{"AnUnknownOperation", "rename,/etc/app.ini", 75, "rename"},
        RefusedProfileLine{
            "AnUnknownOperationInUpperCase", "RENAME,/etc/app.ini,a,b,c", 75, "rename"},
        RefusedProfileLine{"ABlankInFrontOfTheOperation", " put,a,b,c,d", 75, " put"}
    ),
    KTEST::NameOfRow()
);

struct DescribedProfileLine {
    const char* name;
    const char* line;
    const char* description;
};

class KProfileRuleDescriptionTest : public KTEST::RuleTest,
                                    public ::testing::WithParamInterface<DescribedProfileLine> {};

TEST_P(KProfileRuleDescriptionTest, NamesWhatTheLineFilled) {
    world.GivenKey("profileNested", "$os$");
    world.GivenKey("profileTwice", "$profileNested$");
    EXPECT_EQ(DescriptionOf("profile", GetParam().line), GetParam().description);
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    KProfileRuleDescriptionTest,
    ::testing::Values(
        DescribedProfileLine{"ACreation", "create,/etc/app.ini", "Create profile /etc/app.ini"},
        DescribedProfileLine{
            "ACreationInUpperCase", "CREATE,/etc/App.ini", "Create profile /etc/App.ini"},
        DescribedProfileLine{
            "ACreationIgnoresFurtherFields", "create,/a,extra,fields", "Create profile /a"},
        DescribedProfileLine{"APut", "put,/a,General,LogLevel,3", "Put profile option LogLevel=3"},
        DescribedProfileLine{
            "APutInUpperCase",
            "PUT,/a,General,LogLevel,Three",
            "Put profile option LogLevel=Three"},
        DescribedProfileLine{
            "APutOfFourFieldsLeavesThemEmpty", "put,/a,General,LogLevel", "Put profile option ="},
        DescribedProfileLine{"APutOfTwoFieldsLeavesThemEmpty", "put,/a", "Put profile option ="},
        DescribedProfileLine{
            "ARemovalShowsTheMatch", "remove_file,/a,Files,.so", "Put profile option =.so"},
        DescribedProfileLine{
            "ARemovalOfFiveFieldsLeavesThemEmpty", "remove_file,/a,b,c,d", "Put profile option ="},
        DescribedProfileLine{
            "KeyAndValueExpandTwice",
            "put,/a,b,$profileNested$,x$profileNested$",
            "Put profile option lin=xlin"},
        DescribedProfileLine{
            "KeyAndValueExpandNotThrice", "put,/a,b,$profileTwice$,v", "Put profile option $os$=v"},
        DescribedProfileLine{
            "AMatchExpandsTwice", "remove_file,/a,b,$profileNested$", "Put profile option =lin"},
        DescribedProfileLine{"APathExpandsOnce", "create,/$profileNested$", "Create profile /$os$"}
    ),
    KTEST::NameOfRow()
);

TEST_F(KProfileRuleTest, TheLineIsExpandedByTheConstructorAndItsFieldsAgainWhenParsed) {
    world.GivenKey("profileOuter", "$profileInner$");
    world.GivenKey("profileInner", "constructed");
    KProfileRule rule(&manager, "put,/a,b,$profileOuter$,$profileInner$");
    world.GivenKey("profileOuter", "too late");
    world.GivenKey("profileInner", "parsed");
    rule.Initialize();
    EXPECT_STREQ(rule.Description().c_str(), "Put profile option parsed=constructed");
}

// Creating

TEST_F(KProfileRuleTest, CreateMakesAnEmptyProfile) {
    Run("profile", "Create,@T@/a.ini");
    EXPECT_THAT(tree.List(), ::testing::Contains("f 0644 a.ini \"\""));
    EXPECT_THAT(statuses.Lines(), IsEmpty());
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

TEST_F(KProfileRuleTest, CreateEmptiesAProfileThatIsThere) {
    tree.Write("a.ini", "[s]\nk=v\n", 0600);
    Run("profile", "create,@T@/a.ini");
    EXPECT_EQ(tree.Read("a.ini"), "");
}

TEST_F(KProfileRuleTest, AProfileThatCannotBeOpenedIsTheErrorOfItsFile) {
    tree.Directory("a.ini");
    for (const char* line :
         {"create,@T@/a.ini", "put,@T@/a.ini,s,k,v", "remove_file,@T@/a.ini,s,k"}) {
        const KSUP::KError error = KTEST::ErrorOf([&] {
            manager.Clear();
            Run("profile", line);
        });
        EXPECT_EQ(error.GetCode(), unsigned{EISDIR}) << line;
        EXPECT_THAT(error.GetInfo().GetString().c_str(), testing::HasSubstr(tree.Path("a.ini")));
        EXPECT_STREQ(error.GetFile(), "sup++/KProfile") << "it is the support library's own";
        EXPECT_EQ(manager.GetCompletedCount(), 0U) << line;
    }
}

TEST_F(KProfileRuleTest, CreateInAMissingDirectoryIsAnErrorWithThePath) {
    const KSUP::KError error = KTEST::ErrorOf([&] { Run("profile", "create,@T@/none/a.ini"); });
    EXPECT_EQ(error.GetCode(), static_cast<unsigned>(ENOENT));
    EXPECT_THAT(error.GetInfo().GetString().c_str(), ::testing::HasSubstr(tree.Path("none/a.ini")));
    EXPECT_EQ(manager.GetCompletedCount(), 0U);
}

// Putting

struct PutLine {
    const char* name;
    const char* before;
    const char* line;
    const char* after;
};

class KProfileRulePutTest : public KTEST::RuleTest,
                            public ::testing::WithParamInterface<PutLine> {};

TEST_P(KProfileRulePutTest, ChangesTheProfile) {
    world.GivenKey("profileSection", "Gen");
    tree.Write("p/a.ini", GetParam().before);
    Run("profile", GetParam().line);
    EXPECT_EQ(tree.Read("p/a.ini"), GetParam().after);
    EXPECT_EQ(tree.List("p").size(), 1U); // no file is left over
    EXPECT_THAT(statuses.Lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    APut,
    KProfileRulePutTest,
    ::testing::Values(
        PutLine{
            "IntoAnEmptyFile", "", "PUT,@T@/p/a.ini,General,LogLevel,3", "[General]\nLogLevel=3\n"},
        PutLine{
            "OverAValue",
            "[General]\nLogLevel=1\nx=y\n",
            "put,@T@/p/a.ini,General,LogLevel,3",
            "[General]\nLogLevel=3\nx=y\n"},
        PutLine{
            "IntoASection",
            "; mine\n[General]\nx=y\n\n[z]\n",
            "put,@T@/p/a.ini,General,LogLevel,3",
            "; mine\n[General]\nx=y\nLogLevel=3\n\n[z]\n"},
        PutLine{
            "WithMacros",
            "",
            "put,@T@/p/a.ini,$profileSection$eral,$os$,$product$",
            "[General]\nlin=DPS\n"},
        PutLine{
            "OfAValueWithBlanksAndEquals", "", "put,@T@/p/a.ini,s,k,a = b c", "[s]\nk=a = b c\n"}
    ),
    KTEST::NameOfRow()
);

TEST_F(KProfileRuleTest, PutMakesAMissingFile) {
    Run("profile", "put,@T@/a.ini,s,k,v");
    EXPECT_EQ(tree.Read("a.ini"), "[s]\nk=v\n");
}

TEST_F(KProfileRuleTest, PutIntoAMissingDirectoryIsAnErrorWithThePath) {
    const KSUP::KError error = KTEST::ErrorOf([&] { Run("profile", "put,@T@/none/a.ini,s,k,v"); });
    EXPECT_EQ(error.GetCode(), static_cast<unsigned>(ENOENT));
    EXPECT_THAT(error.GetInfo().GetString().c_str(), ::testing::HasSubstr(tree.Path("none/a.ini")));
}

class KProfileRuleEmptyPutTest : public KTEST::RuleTest,
                                 public ::testing::WithParamInterface<const char*> {};

TEST_P(KProfileRuleEmptyPutTest, WritesAnEmptyKeyIntoTheSectionWithTheEmptyName) {
    tree.Write("a.ini", "[s]\nk=v\n");
    Run("profile", GetParam());
    EXPECT_EQ(tree.Read("a.ini"), "=\n[s]\nk=v\n");
    Run("profile", GetParam()); // reads back: a second one replaces it
    EXPECT_EQ(tree.Read("a.ini"), "=\n[s]\nk=v\n");
}

INSTANTIATE_TEST_SUITE_P(
    APutOf, KProfileRuleEmptyPutTest, ::testing::Values("put,@T@/a.ini", "put,@T@/a.ini,s,k")
);

// Removing the files that a profile lists

class KProfileRuleRemoveFileTest : public KTEST::RuleTest {
  protected:
    void GivenList(std::string_view text) { tree.Write("a.ini", InTree(text)); }
    void Remove(const char* match) {
        Run("profile", std::string("remove_file,@T@/a.ini,Files,") + match);
    }
    std::string List() const { return tree.Read("a.ini"); }
};

TEST_F(KProfileRuleRemoveFileTest, DeletesTheFilesThatMatchAndTheirKeys) {
    tree.Write("lib/a.so", "");
    tree.Write("doc/readme", "");
    GivenList("; kept\n[Files]\n1=@T@/lib/a.so\n2=@T@/doc/readme\n[Other]\n1=@T@/lib/a.so\n");
    Remove(".so");
    EXPECT_FALSE(tree.Exists("lib/a.so"));
    EXPECT_TRUE(tree.Exists("doc/readme"));
    EXPECT_EQ(InTree("; kept\n[Files]\n2=@T@/doc/readme\n[Other]\n1=@T@/lib/a.so\n"), List());
    EXPECT_THAT(statuses.Lines(), IsEmpty());
}

TEST_F(KProfileRuleRemoveFileTest, MeetsEveryLineOnceDuplicatesToo) {
    for (const char* name : {"1.so", "2.so", "3.so", "4.so"}) {
        tree.Write(name, "");
    }
    GivenList("[Files]\nk=@T@/1.so\nk=@T@/2.so\nk=@T@/keep\nj=@T@/3.so\nk=@T@/4.so\n");
    Remove(".so");
    for (const char* name : {"1.so", "2.so", "3.so", "4.so"}) {
        EXPECT_FALSE(tree.Exists(name)) << name;
    }
    EXPECT_EQ(InTree("[Files]\nk=@T@/keep\n"), List());
}

/// Also the lines behind its own are met, and the file does not come back.
TEST_F(KProfileRuleRemoveFileTest, AProfileThatListsItselfIsGoneWithAllThatItLists) {
    for (const char* name : {"1.so", "2.so", "3.so"}) {
        tree.Write(name, "");
    }
    GivenList("[Files]\n1=@T@/1.so\nself=@T@/a.ini\n2=@T@/2.so\n2=@T@/3.so\n");
    Remove("@T@");
    EXPECT_THAT(tree.List(), testing::Not(testing::Contains(testing::HasSubstr(".so"))));
    EXPECT_FALSE(tree.Exists("a.ini"));
}

/// Changes the list without a pause, in a section before the one that is walked.
class BusyProcess {
  public:
    explicit BusyProcess(const std::string& list) : child(::fork()) {
        for (int put = 0; child == 0; ++put) {
            KSUP::KProfile(list).PutString("Settings", "s" + std::to_string(put), "1");
        }
    }
    ~BusyProcess() {
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }
    BusyProcess(const BusyProcess&) = delete;
    BusyProcess& operator=(const BusyProcess&) = delete;

  private:
    pid_t child;
};

TEST_F(KProfileRuleRemoveFileTest, BesideAProcessThatChangesTheListItKeepsToItsSection) {
    std::string keep;
    std::string files;
    for (int index = 0; index < 50; ++index) {
        const std::string number = std::to_string(index);
        tree.Write("keep" + number + ".so", "");
        tree.Write("file" + number + ".so", "");
        keep += "k" + number + "=@T@/keep" + number + ".so\n";
        files += "f" + number + "=@T@/file" + number + ".so\n";
    }
    GivenList("[Settings]\n[Keep]\n" + keep + "[Files]\n" + files);
    {
        const BusyProcess busy(tree.Path("a.ini"));
        Remove(".so");
    }
    const std::vector<std::string> left = tree.List();
    EXPECT_EQ(
        std::count_if(
            left.begin(),
            left.end(),
            [](const std::string& entry) {
                return entry.find("keep") != std::string::npos &&
                       entry.find("a.ini") == std::string::npos;
            }
        ),
        50
    );
    for (int index = 0; index < 50; ++index) {
        EXPECT_FALSE(tree.Exists("file" + std::to_string(index) + ".so")) << index;
    }
    EXPECT_THAT(List(), testing::EndsWith(InTree("[Keep]\n" + keep + "[Files]\n")));
}

TEST_F(KProfileRuleRemoveFileTest, TheMatchKeepsItsCase) {
    tree.Write("a.SO", "");
    GivenList("[Files]\n1=@T@/a.SO\n");
    Remove(".so");
    EXPECT_TRUE(tree.Exists("a.SO"));
    EXPECT_EQ(InTree("[Files]\n1=@T@/a.SO\n"), List());
}

TEST_F(KProfileRuleRemoveFileTest, AFileThatCannotBeDeletedLosesItsKeyAllTheSame) {
    tree.Directory("dir.so");
    GivenList("[Files]\n1=@T@/gone.so\n2=@T@/dir.so\n");
    Remove(".so");
    EXPECT_TRUE(tree.Exists("dir.so"));
    EXPECT_EQ(List(), "[Files]\n");
}

TEST_F(KProfileRuleRemoveFileTest, AMissingSectionOrFileIsNothingToDo) {
    GivenList("[Other]\n1=@T@/a.so\n");
    EXPECT_NO_THROW(Remove(".so"));
    EXPECT_EQ(InTree("[Other]\n1=@T@/a.so\n"), List());
    tree.Remove("a.ini");
    EXPECT_NO_THROW(Remove(".so"));
    EXPECT_FALSE(tree.Exists("a.ini"));
}

TEST_F(KProfileRuleRemoveFileTest, ALinkIsDeletedAndNotWhatItPointsTo) {
    tree.Write("real.so", "");
    tree.Link("link.so", "real.so");
    GivenList("[Files]\n1=@T@/link.so\n");
    Remove("link.so");
    EXPECT_FALSE(tree.Exists("link.so"));
    EXPECT_TRUE(tree.Exists("real.so"));
}

TEST_F(KProfileRuleRemoveFileTest, NothingAsksForCancellation) {
    installer->Stop();
    KProfileRule rule(&manager, InTree("put,@T@/a.ini,s,k,v"));
    rule.Initialize();
    EXPECT_NO_THROW(rule.Execute());
    EXPECT_EQ(List(), "[s]\nk=v\n");
}

} // namespace
