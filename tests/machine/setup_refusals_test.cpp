// SPDX-License-Identifier: MIT
//
// Refusals of ins-setup, each with the machine looked at before and behind it: nothing may be
// another.
#include "../support/NameOfRow.h"
#include "SetupRig.h"

#include <ostream>
#include <string>
#include <vector>

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct Refusal {
    const char* name;
    int exitCode;
    const char* message; ///< a part of it
    const char* given;   ///< what is done before the machine is looked at
    const char* line = "SETUP install --kit KIT";
    const char* after = ":";
};

std::ostream& operator<<(std::ostream& out, const Refusal& refusal) {
    return out << refusal.name;
}

class SetupUntouchedTest : public KTEST::SetupProgramTest,
                           public ::testing::WithParamInterface<Refusal> {};

TEST_P(SetupUntouchedTest, ARefusalChangesNothing) {
    ASSERT_EQ(Run(GetParam().given).exitCode, 0);
    const std::vector<std::string> roots = {tree.Path("product"), tree.Path("kit")};
    const std::vector<std::string> before = KTEST::WholeMachine(roots);
    ASSERT_GT(before.size(), 100U); // the machine is seen at all
    const Outcome refused = Run(GetParam().line);
    const std::vector<std::string> after = KTEST::WholeMachine(roots);
    Run(GetParam().after);
    EXPECT_EQ(refused.exitCode, GetParam().exitCode) << refused.out << refused.err;
    EXPECT_THAT(refused.err, HasSubstr(GetParam().message));
    EXPECT_THAT(KTEST::Changes(before, after), IsEmpty());
}

constexpr const char* asNobody = "setpriv --reuid 65534 --regid 65534 --clear-groups ";
constexpr const char* freesTarget = "umount TREE/product";
constexpr const char* isInstalled = "SETUP install --kit KIT";

const std::string asNobodyInstalls = std::string(asNobody) + "SETUP install --kit KIT";
const std::string asNobodyRemoves = std::string(asNobody) + "SETUP remove --yes --kit KIT";
const std::string asNobodyRestores = std::string(asNobody) + "SETUP restore --kit KIT";

/// A run that waits for a lock, and gets a signal once it has looked at it. The lock's holder hands
/// nothing on (-o), so a descriptor of the lock is the run's own.
std::string SignalsWaiting(const std::string& signal) {
    return "flock -o /run/lock/ins++-setuptest.lock sh -c 'SETUP install --wait 60 --kit KIT & "
           "n=0; "
           "until ls -l /proc/$!/fd | grep -q ins++-setuptest.lock || [ $((n += 1)) -gt 6000 ]; do "
           "sleep 0.01; done; kill -" +
           signal + " $!; wait $!'";
}
const std::string stopsWaiting = SignalsWaiting("TERM");
const std::string interruptsWaiting = SignalsWaiting("INT");

/// A run that gets a signal as soon as a look at it ($!) finds something.
std::string SignalsWhen(const std::string& look, const std::string& signal) {
    return "SETUP install --kit KIT & n=0; until " + look +
           " || [ $((n += 1)) -gt 6000 ]; do sleep 0.01; done; kill -" + signal + " $!; wait $!";
}
/// Sparse: takes no room. Its check sum takes longer than the next look.
constexpr const char* largeSealedKit = "truncate -s 600M KIT/lib/svc; SETUP kit seal --kit KIT";
const std::string interruptsSeal = SignalsWhen("ls -l /proc/$!/fd | grep -q lib/svc", "INT");
const std::string stopsSeal = SignalsWhen("ls -l /proc/$!/fd | grep -q lib/svc", "TERM");
/// Many lines take their time to be planned and checked, which is what goes on under the lock.
constexpr const char* longScript =
    R"(for n in $(seq 60000); do
        echo "file=copy,svc,\$pathSource\$lib,\$pathTargetBin\$,svc$n"
    done > TREE/more
    sed -i '/^file=copy,svc/r TREE/more' KIT/install.ini)";
const std::string interruptsPlan = SignalsWhen("[ -s /run/lock/ins++-setuptest.lock ]", "INT");

INSTANTIATE_TEST_SUITE_P(
    Calls,
    SetupUntouchedTest,
    ::testing::Values(
        Refusal{"UnknownOption", 64, "--quickly", ":", "SETUP install --kit KIT --quickly"},
        Refusal{"PathOfTheSystem", 64, "\"/etc\" cannot be", ":", "SETUP install --kit KIT /etc"},
        Refusal{"RelativePath", 64, "does not begin with", ":", "SETUP install --kit KIT opt/x"},
        Refusal{
            "PathBesideTheInstalledProduct",
            64,
            "is installed in",
            isInstalled,
            "SETUP install --kit KIT /opt/elsewhere"},
        Refusal{
            "PathThatLeadsIntoTheSystem",
            64,
            "it is a directory of the system",
            "ln -s /usr TREE/way",
            "SETUP install --kit KIT TREE/way"},
        Refusal{
            "DefaultOfTheSystem",
            65,
            "\"/etc\" cannot be used",
            "sed -i 's,^defaultPath.*,defaultPath.$os$=/etc,' KIT/install.ini"},
        Refusal{
            "OlderVersion",
            64,
            "which is newer than",
            "SETUP install --kit KIT; sed -i s/1.5/1.4/ KIT/product.ini"},
        Refusal{
            "ProgressDescriptor",
            64,
            "no open descriptor",
            ":",
            "SETUP install --progress-fd 9 --kit KIT"},
        Refusal{
            "AddedLineWithoutAKey",
            64,
            "a line is SECTION,KEY,VALUE",
            ":",
            "SETUP install --addProfileLine General --kit KIT"},
        Refusal{
            "AddedLineWithoutAValue",
            64,
            "a line is SECTION,KEY,VALUE",
            ":",
            "SETUP install --no-check --addProfileLine General,Name, --kit KIT"},
        Refusal{
            "AddedLineWithAComma",
            64,
            "a line is SECTION,KEY,VALUE",
            ":",
            "SETUP install --addProfileLine General,Name,a,b --kit KIT"},
        Refusal{
            "AddedLineThatIsTooLong",
            64,
            "is longer than 511 bytes",
            ":",
            "SETUP install --addProfileLine S,K,$(printf %600s | tr ' ' x) --kit KIT"}
    ),
    KTEST::NameOfRow()
);

INSTANTIATE_TEST_SUITE_P(
    Kits,
    SetupUntouchedTest,
    ::testing::Values(
        Refusal{"NoKit", 66, "no such directory", ":", "SETUP install --kit /nowhere"},
        Refusal{"NoScript", 66, "install.ini: missing", "rm KIT/install.ini"},
        Refusal{"NoProductFile", 66, "product.ini: missing", "rm KIT/product.ini"},
        Refusal{"WrongProductFile", 65, "must be names", "sed -i s,=st.ini,=a/b, KIT/product.ini"},
        Refusal{"KitThatOthersMayWrite", 66, "others than root can", "chmod o+w KIT"},
        Refusal{"KitThatAGroupMayWrite", 66, "others than root can", "chmod g+w KIT"},
        Refusal{"DirectoryInItThatOthersMayWrite", 66, "kit/lib", "chmod o+w KIT/lib"},
        Refusal{"FileInItThatOthersMayWrite", 66, "kit/lib/svc", "chmod o+w KIT/lib/svc"},
        Refusal{"KitOfAnotherUser", 66, "others than root can", "chown 65534 KIT"},
        Refusal{"KitInADirectoryOfAnotherUser", 66, "others than root can", "chown 65534 TREE"},
        Refusal{
            "SealedFileThatChanged",
            65,
            "    lib/svc: changed",
            "SETUP kit seal --kit KIT; echo more >> KIT/lib/svc"},
        Refusal{
            "SealedFileThatIsGone",
            65,
            "    lib/more: missing",
            "echo more > KIT/lib/more; SETUP kit seal --kit KIT; rm KIT/lib/more"},
        Refusal{
            "FileThatWasNotSealed",
            65,
            "    lib/more: not listed",
            "SETUP kit seal --kit KIT; echo more > KIT/lib/more"},
        Refusal{"SealThatIsNone", 65, "not a line of check sums", "echo sums > KIT/SHA256SUMS"},
        Refusal{"SealThatLeadsNowhere", 66, "SHA256SUMS", "ln -s /nowhere KIT/SHA256SUMS"}
    ),
    KTEST::NameOfRow()
);

INSTANTIATE_TEST_SUITE_P(
    Scripts,
    SetupUntouchedTest,
    ::testing::Values(
        Refusal{"UnknownOperation", 65, ": error: ", "sed -i s/=create,/=make,/ KIT/install.ini"},
        Refusal{"SourceThatIsMissing", 65, "is not in the kit", "rm KIT/lib/svc"},
        Refusal{
            "Circle", 65, "[install]", "sed -i '/^file=copy/i section=install' KIT/install.ini"},
        Refusal{
            "CircleThatIsNotChecked",
            65,
            "section [install] includes itself",
            "sed -i '/^file=copy/i section=install' KIT/install.ini",
            "SETUP install --no-check --kit KIT"},
        Refusal{
            "CircleOfAnotherArchitectureThatIsNotChecked",
            65,
            "section [more] includes itself",
            "case $(uname -m) in x86_64) other=x86 ;; *) other=x86_64 ;; esac; "
            "sed -i '/^file=copy/i section=more' KIT/install.ini; "
            "printf '[more.%s]\nsection=more\n' $other >> KIT/install.ini",
            "SETUP install --no-check --kit KIT"},
        Refusal{
            "CircleOfTheRemoval",
            65,
            "a section includes itself",
            "SETUP install --kit KIT; sed -i '$a section=remove' KIT/install.ini",
            "SETUP remove --yes --kit KIT"},
        Refusal{
            "MalformedLine",
            65,
            "a file rule cannot have 2 fields",
            "sed -i '/^file=copy/i file=copy,a' KIT/install.ini"},
        Refusal{
            "MalformedLineThatIsNotChecked",
            65,
            "a file rule has 3 to 5 fields",
            "sed -i '/^file=copy/i file=copy,a' KIT/install.ini",
            "SETUP install --no-check --kit KIT"},
        Refusal{
            "UnknownRuleThatIsNotChecked",
            65,
            "\"files\" is no type of rule",
            "sed -i 's/^file=copy/files=copy/' KIT/install.ini",
            "SETUP install --no-check --kit KIT"},
        Refusal{
            "MalformedLineOfTheRemoval",
            65,
            "a directory rule has 2 fields",
            "SETUP install --kit KIT; sed -i '$a directory=delete' KIT/install.ini",
            "SETUP remove --yes --kit KIT"}
    ),
    KTEST::NameOfRow()
);

INSTANTIATE_TEST_SUITE_P(
    Seals,
    SetupUntouchedTest,
    ::testing::Values(Refusal{
        "ScriptOfTheRemovalThatWasChanged",
        65,
        "install.ini: changed",
        "SETUP kit seal --kit KIT; SETUP install --kit KIT; "
        "echo 'process=start,touch TREE/evil' >> KIT/install.ini",
        "SETUP remove --yes --kit KIT"}),
    KTEST::NameOfRow()
);

INSTANTIATE_TEST_SUITE_P(
    Machines,
    SetupUntouchedTest,
    ::testing::Values(
        Refusal{
            "NoSpace",
            73,
            "too little space",
            "mkdir TREE/product; mount -t tmpfs -o size=1m none TREE/product",
            "SETUP install --kit KIT",
            freesTarget},
        Refusal{
            "NoInodes",
            73,
            "too few inodes",
            "mkdir TREE/product; mount -t tmpfs -o size=64m,nr_inodes=10 none TREE/product",
            "SETUP install --kit KIT",
            freesTarget},
        Refusal{
            "ReadOnlyTarget",
            73,
            "is mounted read-only",
            "mkdir TREE/product; mount -t tmpfs -o ro none TREE/product",
            "SETUP install --kit KIT",
            freesTarget},
        Refusal{"FileWhereTheTargetGoes", 73, "it is no directory", "echo mine > TREE/product"},
        Refusal{
            "LogDirectoryThatOthersMayWrite",
            73,
            "the directory of logs",
            "chmod 0777 /var/log",
            "SETUP install --kit KIT",
            "chmod 0755 /var/log"},
        Refusal{
            "LinkInThePlaceOfTheLog",
            73,
            "Setup Test Setup Log.txt: is no regular file",
            "ln -s TREE/victim '/var/log/Setup Test Setup Log.txt'"},
        Refusal{
            "LinkInThePlaceOfTheCommandsLog",
            73,
            "Setup Test Setup Commands.txt: is no regular file",
            "ln -s TREE/victim '/var/log/Setup Test Setup Commands.txt'"},
        Refusal{
            "LogDirectoryThatOthersMayWriteBeforeABackup",
            73,
            "the directory of logs",
            "SETUP install --backup --kit KIT; chmod 0777 /var/log",
            "SETUP install --backup --kit KIT",
            "chmod 0755 /var/log"},
        Refusal{
            "NoSpaceForTheLog",
            73,
            "too little space",
            "mkdir TREE/log; mount -t tmpfs -o size=1m none TREE/log; mount --bind TREE/log "
            "/var/log",
            "SETUP install --kit KIT",
            "umount /var/log TREE/log"},
        Refusal{
            "NoSpaceForTheState",
            73,
            "too little space",
            "mkdir -p /var/lib/ins++; mount -t tmpfs -o size=1m,mode=0700 none /var/lib/ins++",
            "SETUP install --kit KIT",
            "umount /var/lib/ins++"},
        Refusal{
            "NoServiceManager",
            69,
            "systemd does not run here",
            "sed -i '/^.remove/i service=start,$serviceName$' KIT/install.ini; "
            "sed -i '/^.remove/a service=remove,$serviceName$' KIT/install.ini; "
            "mv /run/systemd/system /run/systemd/hidden",
            "SETUP install --kit KIT",
            "mv /run/systemd/hidden /run/systemd/system"},
        Refusal{
            "NoServiceManagerToRemove",
            69,
            "systemd does not run here",
            "SETUP install --kit KIT; "
            "sed -i '/^.remove/a service=stop,$serviceName$' KIT/install.ini; "
            "mv /run/systemd/system /run/systemd/hidden",
            "SETUP remove --yes --kit KIT",
            "mv /run/systemd/hidden /run/systemd/system"},
        Refusal{
            "LockThatIsHeld",
            75,
            "another run for setuptest goes on",
            ":",
            "flock /run/lock/ins++-setuptest.lock SETUP install --kit KIT"},
        Refusal{
            "LockThatIsHeldAndWaitedFor",
            75,
            "another run for setuptest goes on",
            isInstalled,
            "flock /run/lock/ins++-setuptest.lock SETUP remove --wait 1 --kit KIT"},
        Refusal{
            "StopWhileALockIsWaitedFor",
            143,
            "stopped on request while waiting for another run. Nothing was changed.",
            ":",
            stopsWaiting.c_str()},
        Refusal{
            "InterruptWhileALockIsWaitedFor",
            130,
            "stopped on request while waiting for another run. Nothing was changed.",
            ":",
            interruptsWaiting.c_str()},
        Refusal{
            "InterruptWhileTheSealIsChecked",
            130,
            "ins-setup: Stopped on request. Nothing was changed.",
            largeSealedKit,
            interruptsSeal.c_str()},
        Refusal{
            "StopWhileTheSealIsChecked",
            143,
            "ins-setup: Stopped on request. Nothing was changed.",
            largeSealedKit,
            stopsSeal.c_str()},
        Refusal{
            "InterruptWhileARunIsPlanned",
            130,
            "ins-setup: Stopped on request. Nothing was changed.",
            longScript,
            interruptsPlan.c_str()},
        Refusal{"NotRoot", 77, "Only root can install", ":", asNobodyInstalls.c_str()},
        Refusal{"NotRootToRemove", 77, "Only root can", isInstalled, asNobodyRemoves.c_str()},
        Refusal{"NotRootToRestore", 77, "Only root can", isInstalled, asNobodyRestores.c_str()},
        Refusal{
            "RecordOfTheSystem",
            65,
            "The record of the installed product is wrong",
            "mkdir /etc/setuptest; ln -s /usr/lin/x86/svc /etc/setuptest/setuptest",
            "SETUP remove --yes --kit KIT"},
        Refusal{"NoBackup", 66, "there is no backup", isInstalled, "SETUP restore --kit KIT"},
        Refusal{
            "NoManifest",
            66,
            "there is nothing to compare with",
            "SETUP install --kit KIT; rm /var/lib/ins++/setuptest/manifest",
            "SETUP status --verify --kit KIT"}
    ),
    KTEST::NameOfRow()
);

using SetupUntouchedByQuestionsTest = KTEST::SetupProgramTest;

TEST_F(SetupUntouchedByQuestionsTest, QuestionsChangeNothing) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    const std::vector<std::string> roots = {tree.Path("product"), tree.Path("kit")};
    const std::vector<std::string> before = KTEST::WholeMachine(roots);
    for (const char* question :
         {"status", "status --verify", "plan install", "plan remove", "check", "macros"}) {
        EXPECT_EQ(RunSetup(question).exitCode, 0) << question;
    }
    EXPECT_THAT(KTEST::Changes(before, KTEST::WholeMachine(roots)), IsEmpty());
}

TEST_F(SetupUntouchedByQuestionsTest, WhatIsLookedAtShowsEachKindOfChange) {
    tree.Write("seen/file", "text");
    tree.Link("seen/link", "file");
    tree.Directory("seen/empty");
    const std::vector<std::string> roots = {tree.Path("seen")};
    std::vector<std::string> before = KTEST::MachineTree(roots);
    const auto changes = [&] {
        std::vector<std::string> after = KTEST::MachineTree(roots);
        const std::size_t count = KTEST::Changes(before, after).size();
        before = after;
        return count;
    };
    EXPECT_EQ(changes(), 0U);
    tree.Write("seen/file", "Text");
    EXPECT_EQ(changes(), 2U);
    tree.SetMode("seen/empty", 0700);
    EXPECT_EQ(changes(), 2U);
    tree.Remove("seen/link");
    tree.Link("seen/link", "other");
    EXPECT_EQ(changes(), 2U);
    tree.SetOwner("seen/file", 1, 1);
    EXPECT_EQ(changes(), 2U);
    tree.Write("seen/new", "");
    EXPECT_EQ(changes(), 1U);
}

} // namespace
