// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using KTEST::ScriptLine;
using RemovalChecksTest = KTEST::GivenKit;

TEST_F(RemovalChecksTest, ADirectoryOfTheSystemIsDeleted) {
    Remove("directory=delete,/usr");
    EXPECT_EQ(
        TheFinding("system-deletion"),
        "install.ini:10:18 error [/usr] this deletes in \"/usr\", which belongs to the system; "
        "delete only what the script installs, each file by its name"
    );
}

using SystemDeletionTest = KTEST::GivenKitWithLine;
TEST_P(SystemDeletionTest, IsAFinding) {
    Remove(GetParam().line);
    EXPECT_THAT(TheFinding("system-deletion"), StartsWith("install.ini:10:"));
}
INSTANTIATE_TEST_SUITE_P(
    Lines,
    SystemDeletionTest,
    ::testing::Values(
        ScriptLine{"Root", "directory=DELETE,/"},
        ScriptLine{"Etc", "directory=delete,/etc/"},
        ScriptLine{"TheWayUp", "directory=delete,$pathTarget$.."},
        ScriptLine{"FilesOfUsrBin", "file=delete,*,/usr/bin"},
        ScriptLine{"FileOfEtc", "file=delete,passwd,/etc"},
        ScriptLine{"UnitOfAnother", "file=delete,ssh.service,/etc/systemd/system"},
        ScriptLine{"AllUnits", "file=delete,*.service,/etc/systemd/system"}
    ),
    KTEST::NameOfRow()
);

using FineDeletionTest = KTEST::GivenKitWithLine;
TEST_P(FineDeletionTest, IsNone) {
    File("tool");
    Install("file=copy,tool,$pathSource$,/usr/local/bin");
    Remove(GetParam().line);
    EXPECT_FALSE(Finds("system-deletion"));
}
INSTANTIATE_TEST_SUITE_P(
    Lines,
    FineDeletionTest,
    ::testing::Values(
        ScriptLine{"OwnDirectoryOfEtc", "directory=delete,/etc/$serviceName$"},
        ScriptLine{"ProductPath", "directory=delete,$pathTarget$"},
        ScriptLine{"OwnUnit", "file=delete,$serviceName$.service,/etc/systemd/system"},
        ScriptLine{"OwnDropIns", "directory=delete,/etc/systemd/system/$serviceName$.service.d"},
        ScriptLine{"DropIns", "file=delete,*.conf,/etc/systemd/system/$serviceName$.service.d"},
        ScriptLine{"DropIn", "file=delete,a.conf,/etc/systemd/system/$serviceName$.service.d"},
        ScriptLine{"WhatWasInstalled", "file=delete,tool,/usr/local/bin"},
        ScriptLine{"NoDeletion", "directory=create,/usr/local/bin"}
    ),
    KTEST::NameOfRow()
);

TEST_F(RemovalChecksTest, AnInstallDeletesInTheSystemToo) {
    Sections("[install.x86]\nfile=delete,*,/usr/lib");
    EXPECT_THAT(TheFinding("system-deletion"), StartsWith("install.ini:19:15 error [/usr/lib]"));
}

TEST_F(RemovalChecksTest, AFileIsNotRemoved) {
    File("readme.txt");
    Install("file=copy,readme.txt,$pathSource$,/srv");
    EXPECT_EQ(
        TheFinding("not-removed"),
        "install.ini:2:6 warning [copy,readme.txt,$pathSource$,/srv] section [remove] does "
        "not remove \"/srv/readme.txt\", made here; add a rule that does"
    );
}

TEST_F(RemovalChecksTest, LinksDirectoriesAndProfilesAreNotRemoved) {
    Install("directory=create,/srv/svc\nfile=symlink,svc,$pathTargetBin$,/usr/local/bin\n"
            "profile=put,/etc/svc.ini,S,K,V");
    EXPECT_THAT(
        Findings("not-removed"),
        ElementsAre(
            HasSubstr("not remove \"/srv/svc\", made"),
            HasSubstr("not remove \"/usr/local/bin/svc\", made"),
            HasSubstr("not remove \"/etc/svc.ini\", made")
        )
    );
}

TEST_F(RemovalChecksTest, AServiceIsNotRemoved) {
    Install("service=install,$serviceName$\nservice=install,other");
    Remove("service=remove,$serviceName$");
    EXPECT_THAT(TheFinding("not-removed"), HasSubstr("not remove service other, made here"));
}

TEST_F(RemovalChecksTest, ManyFilesOfOneRuleAreOneFinding) {
    for (const char* name : {"doc/a", "doc/b", "doc/c", "doc/d", "doc/e"}) {
        File(name);
    }
    Install("file=copy,*,$pathSource$doc,/srv");
    EXPECT_THAT(
        TheFinding("not-removed"),
        HasSubstr("\"/srv/a\", \"/srv/b\", \"/srv/c\" and 2 more, made here")
    );
}

TEST_F(RemovalChecksTest, WhatTwoRulesMakeIsToldOnce) {
    Install("profile=put,/etc/svc.ini,S,K,V\nprofile=put,/etc/svc.ini,S,L,V");
    EXPECT_THAT(TheFinding("not-removed"), StartsWith("install.ini:2:9 "));
}

TEST_F(RemovalChecksTest, WhatRulesRemoveIsRemoved) {
    File("doc/a");
    Install("directory=create,$pathTarget$doc/more\nfile=copy,*,$pathSource$doc,$pathTarget$doc");
    Remove("directory=delete,$pathTarget$doc/more\ndirectory=delete,$pathTarget$doc");
    EXPECT_FALSE(Finds("not-removed"));
}

TEST_F(RemovalChecksTest, ADirectoryThatIsDeletedTooEarlyIsLeft) {
    Install("directory=create,$pathTarget$doc/more");
    Remove("directory=delete,$pathTarget$doc\ndirectory=delete,$pathTarget$doc/more");
    // The product's own directory is left with it, but would go if this did.
    EXPECT_THAT(TheFinding("not-removed"), HasSubstr("not remove \"/opt/svc/doc\", made"));
}

TEST_F(RemovalChecksTest, WhatACommandNamesIsTakenForRemoved) {
    Install("directory=create,$pathTarget$data/deep\ndirectory=create,$pathTarget$database");
    Remove("process=start,rm -rf \"$pathTarget$data\"");
    EXPECT_THAT(TheFinding("not-removed"), HasSubstr("not remove \"/opt/svc/database\", made"));
}

TEST_F(RemovalChecksTest, ACommandOfTheProductRemovesNothing) {
    Install("directory=create,$pathTarget$data");
    Remove("process=start,\"$pathTargetBin$svc\" --stop");
    EXPECT_TRUE(Finds("not-removed"));
}

} // namespace
