// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/KitAdd.h>
#include <setup/kit/KitNew.h>
#include <setup/kit/KitSeal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class KitAddTest : public ::testing::Test {
  protected:
    KitAddTest() { KSETUP::MakeNewKit(tree.Path("kit")); }

    std::vector<std::string> Add(const std::string& name = "tree") {
        std::vector<std::string> told;
        for (const KSETUP::KText& one : KSETUP::AddTree(
                 KSETUP::KAddedTree(tree.Path(name)), tree.Path("kit"), tree.Path("kit/install.ini")
             )) {
            told.push_back(one.English());
        }
        return told;
    }
    /// What it is refused with; the kit must be as it was.
    std::string Refusal(const std::string& name = "tree") {
        const std::vector<std::string> before = tree.List("kit");
        std::string why;
        try {
            Add(name);
        } catch (const KSETUP::KSetupFailure& failure) {
            why = failure.what();
        }
        EXPECT_NE(why, "");
        EXPECT_EQ(tree.List("kit"), before);
        return why;
    }
    std::string Script() { return tree.Read("kit/install.ini"); }

    KTEST::TemporaryTree tree;
};

TEST_F(KitAddTest, ATreeBecomesRulesAndTheirRemoval) {
    tree.Write("tree/a b", "1");
    tree.Write("tree/lib/libx.so.1", "2", 0755);
    tree.Link("tree/lib/libx.so", "libx.so.1");
    tree.Link("tree/lib/up", "../share/");
    tree.Link("tree/lib/env", "/usr/bin/env");
    tree.Directory("tree/empty");
    EXPECT_THAT(Add(), IsEmpty());
    EXPECT_THAT(
        Script(),
        HasSubstr("[files]\nsection=files tree\n[remove files]\nsection=remove files tree\n"
                  "[files tree]\n"
                  "directory=create,$pathTarget$\n"
                  "directory=create,$pathTarget$empty/\n"
                  "directory=create,$pathTarget$lib/\n"
                  "file=copy,*,$pathSource$payload/tree/,$pathTarget$\n"
                  "file=copy,*,$pathSource$payload/tree/lib/,$pathTarget$lib/\n"
                  "link=create,/usr/bin/env,$pathTarget$lib/env\n"
                  "link=create,libx.so.1,$pathTarget$lib/libx.so\n"
                  "link=create,../share/,$pathTarget$lib/up\n"
                  "[remove files tree]\n"
                  "file=delete,*,$pathTarget$lib/\n"
                  "directory=delete,$pathTarget$lib/\n"
                  "file=delete,*,$pathTarget$empty/\n"
                  "directory=delete,$pathTarget$empty/\n"
                  "file=delete,a b,$pathTarget$\n")
    );
    EXPECT_THAT(
        tree.List("kit/payload/tree"),
        ElementsAre("f 0644 a b \"1\"", "d 0755 lib", "f 0755 lib/libx.so.1 \"2\"")
    );
}

TEST_F(KitAddTest, AddingAgainReplacesTheFormerPartAndFiles) {
    tree.Write("tree/old", "1");
    Add();
    const std::string first = Script();
    Add();
    EXPECT_EQ(Script(), first);
    tree.Remove("tree/old");
    tree.Write("tree/new", "2");
    Add();
    EXPECT_FALSE(tree.Exists("kit/payload/tree/old"));
    EXPECT_TRUE(tree.Exists("kit/payload/tree/new"));
    EXPECT_THAT(Script(), Not(HasSubstr("file=delete,old")));
    EXPECT_THAT(Script(), HasSubstr("file=delete,new"));
}

TEST_F(KitAddTest, TwoTreesStandBesideEachOther) {
    tree.Write("tree/a", "1");
    tree.Write("other/b", "2");
    Add();
    Add("other");
    const std::string both = Script();
    tree.Write("tree/c", "3");
    Add();
    EXPECT_THAT(Script(), HasSubstr("[files other]"));
    EXPECT_THAT(Script(), HasSubstr("file=delete,c,$pathTarget$"));
    EXPECT_EQ(tree.Read("kit/payload/other/b"), "2");
}

TEST_F(KitAddTest, TheAuthorsLinesSurvive) {
    tree.Write("tree/a", "1");
    Add();
    tree.Write("kit/install.ini", "; mine\n" + Script() + "[mine]\nfile=delete,x,/opt/y\n", 0600);
    tree.Write("tree/b", "1");
    Add();
    EXPECT_THAT(Script(), ::testing::StartsWith("; mine\n"));
    EXPECT_THAT(Script(), ::testing::EndsWith("[mine]\nfile=delete,x,/opt/y\n"));
    EXPECT_EQ(tree.Mode("kit/install.ini"), 0600U);
}

TEST_F(KitAddTest, AScriptOfAnotherHandIsLedToTheFilesBeforeItsLink) {
    tree.Write("tree/a", "1");
    tree.Write(
        "kit/install.ini",
        "[install]\ndirectory=create,$pathTargetBin$\n; the link\ndirectory=create,/etc/x\n"
        "file=symlink,p,$pathTargetBin$,/etc/x,x\n[remove]\nfile=delete,x,/etc/x\n"
    );
    Add();
    EXPECT_THAT(
        Script(),
        HasSubstr("[install]\ndirectory=create,$pathTargetBin$\n; the link\nsection=files\n"
                  "directory=create,/etc/x\nfile=symlink,p,$pathTargetBin$,/etc/x,x\n"
                  "[remove]\nsection=remove files\nfile=delete,x,/etc/x\n")
    );
}

TEST_F(KitAddTest, AByteOrderMarkAndOtherLineEndsAreNoObstacle) {
    tree.Write("tree/a", "1");
    tree.Write(
        "kit/install.ini", "\xEF\xBB\xBF[install]\r\nfile=symlink,p,/opt/x,/etc/x,x\r\n[remove]\r\n"
    );
    Add();
    EXPECT_THAT(
        Script(),
        ::testing::StartsWith("\xEF\xBB\xBF[install]\r\nsection=files\n"
                              "file=symlink,p,/opt/x,/etc/x,x\r\n[remove]\r\n"
                              "section=remove files\n")
    );
}

TEST_F(KitAddTest, AScriptWithoutSectionsGetsThem) {
    tree.Write("tree/a", "1");
    tree.Write("kit/install.ini", "");
    Add();
    EXPECT_THAT(Script(), HasSubstr("[install]\nsection=files\n"));
    EXPECT_THAT(Script(), HasSubstr("[remove]\nsection=remove files\n"));
}

TEST_F(KitAddTest, WhatRulesCannotHoldIsListedAndNothingIsChanged) {
    tree.Write("tree/d/new\nline", "");
    tree.Fifo("tree/pipe");
    tree.Link("tree/link", "to\twhere");
    tree.Link("tree/inside", tree.Path("tree/d"));
    const std::string why = Refusal();
    for (const char* const part :
         {"/d/new?line: the name has a control character",
          "/pipe: neither a file",
          "/link: where the link leads to, to?where, has a control character",
          "/inside: the link leads into this tree"}) {
        EXPECT_THAT(why, HasSubstr(part));
    }
}

TEST_F(KitAddTest, NamesThatMeanSomethingInAScriptAreWrittenWithEscapes) {
    tree.Write("tree/a,b", "1");
    tree.Write("tree/100%", "1");
    tree.Write("tree/d,e/$c$", "2");
    tree.Write("tree/d,e/star*", "3");
    tree.Link("tree/ link ", "to,where?");
    tree.Link("tree/root", "/");
    Add();
    EXPECT_THAT(
        Script(),
        HasSubstr("[files tree]\n"
                  "directory=create,$pathTarget$\n"
                  "entry=create,$pathTarget$d%2Ce\n"
                  "file=copy,*,$pathSource$payload/tree/,$pathTarget$\n"
                  "entry=copy,$pathSource$payload/tree/d%2Ce/%24c%24,$pathTarget$d%2Ce/%24c%24\n"
                  "entry=copy,$pathSource$payload/tree/d%2Ce/star%2A,$pathTarget$d%2Ce/star%2A\n"
                  "link=create,to%2Cwhere%3F,$pathTarget$%20link%20\n"
                  "link=create,/,$pathTarget$root\n"
                  "[remove files tree]\n"
                  "entry=delete,$pathTarget$d%2Ce/%24c%24\n"
                  "entry=delete,$pathTarget$d%2Ce/star%2A\n"
                  "entry=delete,$pathTarget$d%2Ce\n"
                  "file=delete,100%,$pathTarget$\n"
                  "entry=delete,$pathTarget$a%2Cb\n"
                  "entry=delete,$pathTarget$%20link%20\n"
                  "file=delete,root,$pathTarget$\n")
    );
    EXPECT_EQ(tree.Read("kit/payload/tree/d,e/$c$"), "2");
}

TEST_F(KitAddTest, WhatLiesBelowEtcIsConfiguration) {
    tree.Write("tree/etc/app/app.conf", "1");
    tree.Write("tree/etcetera/x", "1");
    Add();
    EXPECT_THAT(
        Script(),
        HasSubstr("config=copy,*,$pathSource$payload/tree/etc/app,$pathTarget$etc/app\n"
                  "file=copy,*,$pathSource$payload/tree/etcetera/,$pathTarget$etcetera/\n")
    );
}

TEST_F(KitAddTest, NamesWithBlanksAndLettersOfAllKindsAreTaken) {
    tree.Write("tree/ lead", "1");
    tree.Write("tree/trail ", "2");
    tree.Write("tree/dir /;x=[y]", "3");
    tree.Write(
        "tree/gr\xC3\xB6\xC3\x9F"
        "e",
        "4"
    );
    tree.Write("tree/no\xFFtext", "5");
    Add();
    EXPECT_THAT(
        Script(), HasSubstr("file=copy,*,$pathSource$payload/tree/dir /,$pathTarget$dir /")
    );
    EXPECT_THAT(Script(), HasSubstr("entry=delete,$pathTarget$%20lead\n"));
    EXPECT_EQ(tree.Read("kit/payload/tree/dir /;x=[y]"), "3");
}

TEST_F(KitAddTest, ATreeThatCannotGiveASectionItsNameIsRefused) {
    for (const char* const name : {"a,b", "x]", ".hidden", "tree.x86_64", "end "}) {
        tree.Write(std::string(name) + "/a", "1");
        EXPECT_THAT(Refusal(name), HasSubstr("name of a section")) << name;
    }
}

TEST_F(KitAddTest, NothingAndNoDirectoryAreRefused) {
    tree.Directory("empty");
    EXPECT_THAT(Refusal("empty"), HasSubstr("nothing in it"));
    EXPECT_THAT(Refusal("missing"), HasSubstr("No such file or directory"));
    tree.Write("file", "");
    EXPECT_THAT(Refusal("file"), HasSubstr("no directory"));
}

TEST_F(KitAddTest, ATreeInTheKitOrAroundItIsRefused) {
    EXPECT_THAT(Refusal("kit/payload"), HasSubstr("lie in each other"));
    EXPECT_THAT(Refusal("kit"), HasSubstr("lie in each other"));
    EXPECT_THAT(Refusal(""), HasSubstr("lie in each other"));
}

TEST_F(KitAddTest, AFileOfTheAuthorsIsNotReplaced) {
    tree.Write("tree/a", "1");
    tree.Write("kit/payload/tree/mine", "2");
    EXPECT_THAT(Refusal(), HasSubstr("this is yours"));
}

TEST_F(KitAddTest, MarksThatDoNotMatchAreRefused) {
    tree.Write("tree/a", "1");
    tree.Write("kit/install.ini", "; >>> kit add tree\n[install]\n");
    EXPECT_THAT(Refusal(), HasSubstr("do not match"));
    tree.Write("kit/install.ini", "; <<< kit add tree\n; >>> kit add tree\n");
    EXPECT_THAT(Refusal(), HasSubstr("do not match"));
}

TEST_F(KitAddTest, ModesAreSetWhereACopyDoesNotBringThem) {
    tree.Write("tree/secret/a", "1", 0600);
    tree.SetMode("tree/secret", 0700);
    tree.Directory("tree/tmp");
    tree.SetMode("tree/tmp", 01777);
    EXPECT_THAT(Add(), IsEmpty());
    EXPECT_THAT(
        Script(),
        HasSubstr("mode=set,$pathTarget$secret,0700\n"
                  "mode=set,$pathTarget$tmp,1777\n[remove")
    );
    EXPECT_EQ(tree.Mode("kit/payload/tree/secret/a"), 0600U);
}

TEST_F(KitAddTest, ASetIdFileOfSomebodyElseIsRefused) {
    tree.Write("tree/bin/score", "1");
    if (::geteuid() == 0) { // else it is the caller's own, which would become root's
        tree.SetOwner("tree/bin/score", 4711, 0);
    }
    tree.SetMode("tree/bin/score", 04755);
    EXPECT_THAT(Refusal(), HasSubstr("bin/score: it has the set-id bit of user "));
    tree.SetMode("tree/bin/score", 0755);
    EXPECT_THAT(Script(), Not(HasSubstr("score")));
    Add();
}

TEST_F(KitAddTest, WhatOthersMayWriteLosesThatAndIsTold) {
    tree.Write("tree/shared/a", "1");
    tree.SetMode("tree/shared/a", 0664);
    tree.SetMode("tree/shared", 0777);
    EXPECT_THAT(Add(), ElementsAre(HasSubstr("installed: shared, shared/a.")));
    EXPECT_EQ(tree.Mode("kit/payload/tree/shared/a"), 0644U);
    EXPECT_THAT(Script(), Not(HasSubstr("mode=set")));
}

TEST_F(KitAddTest, AnOldSealIsTold) {
    tree.Write("tree/a", "1");
    KSETUP::WriteSeal(tree.Path("kit"));
    EXPECT_THAT(Add(), ElementsAre(HasSubstr("seal it again")));
}

TEST_F(KitAddTest, AUnitOfTheTreesOwnProgramGetsServiceRules) {
    tree.Write(
        "tree/usr/lib/systemd/system/app.service",
        "[Service]\nExecStart=-/opt/hello/bin/app --serve\n[Install]\nWantedBy=multi-user.target\n"
    );
    tree.Write(
        "tree/usr/lib/systemd/system/once.service",
        "[Service]\nType=oneshot\nExecStart=/bin/true\n[Install]\nWantedBy=multi-user.target\n"
    );
    EXPECT_THAT(Add(), IsEmpty());
    EXPECT_THAT(
        Script(),
        HasSubstr("[files tree]\nservice=remove,app\nservice=remove,once\ndirectory=create")
    );
    const std::string from =
        "$pathSource$payload/tree/usr/lib/systemd/system,/etc/systemd/system\n";
    EXPECT_THAT(
        Script(),
        HasSubstr(
            "config=replace,app.service," + from + "service=install,app\nservice=start,app\n" +
            "config=replace,once.service," + from +
            "service=install,once\n[remove files tree]\n"
            "service=remove,app\nfile=delete,app.service,/etc/systemd/system\n"
            "service=remove,once\nfile=delete,once.service,/etc/systemd/system\n"
        )
    );
}

TEST_F(KitAddTest, AUnitThatCannotStartWhereItIsInstalledIsTold) {
    tree.Write("tree/usr/sbin/app", "1", 0755);
    tree.Write(
        "tree/lib/systemd/system/app.service",
        "[Service]\nExecStart=/usr/sbin/app\n[Install]\nWantedBy=multi-user.target\n"
    );
    tree.Write("tree/lib/systemd/system/other.service", "[Service]\nExecStart=/bin/true\n");
    tree.Write("tree/lib/systemd/system/many@.service", "[Service]\nExecStart=/bin/true\n");
    EXPECT_THAT(
        Add(),
        ElementsAre(
            HasSubstr("app.service runs /usr/sbin/app, and the tree is installed below"),
            HasSubstr("other.service says in no section [Install]")
        )
    );
    EXPECT_THAT(Script(), Not(HasSubstr("service=")));
}

} // namespace
