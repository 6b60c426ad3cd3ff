// SPDX-License-Identifier: MIT
//
// Runs that are killed before one of their system calls, at a hundred places spread over the whole
// run, and are then started again without any option: in the end everything has to be as if nothing
// had happened.
#include "SetupRig.h"
#include "TracedRun.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr unsigned places = 100;

/// Whether a call may change a file, or brings a change to the disk.
bool Changes(const __ptrace_syscall_info& call) {
    static const std::set<unsigned long> changing = {
        SYS_write,     SYS_pwrite64, SYS_copy_file_range, SYS_sendfile,  SYS_ftruncate,
        SYS_fallocate, SYS_rename,   SYS_renameat,        SYS_renameat2, SYS_unlink,
        SYS_unlinkat,  SYS_rmdir,    SYS_mkdir,           SYS_mkdirat,   SYS_symlink,
        SYS_symlinkat, SYS_link,     SYS_linkat,          SYS_chmod,     SYS_fchmod,
        SYS_fchmodat,  SYS_fchown,   SYS_fchownat,        SYS_fsync,     SYS_fdatasync,
        SYS_syncfs,    SYS_openat2,  SYS_flock,           SYS_utimensat,
    };
    const bool makes = call.entry.nr == SYS_openat && (call.entry.args[2] & O_CREAT) != 0;
    return makes || changing.contains(call.entry.nr);
}

/// Runs a program up to its n-th such call, which is not made any more. 0 lets it run to its end.
/// Returns the calls that were seen.
unsigned RunUntil(const std::vector<std::string>& words, unsigned nth, int& status) {
    unsigned seen = 0;
    status = KTEST::RunTraced(words, [&](pid_t, const __ptrace_syscall_info& call) {
        return Changes(call) && ++seen == nth;
    });
    return seen;
}

/// A kit of sixty rules of all kinds, with files that take several calls to copy.
class SetupKilledTest : public KTEST::SetupProgramTest {
  protected:
    SetupKilledTest() {
        std::string more = "directory=create,$pathTarget$data\ndirectory=create,$pathTarget$share\n"
                           "directory=create,$pathTarget$data/old\n";
        tree.Write("kit/many/large.bin", KTEST::ArbitraryBytes(700000, 1), 0640);
        for (int number = 0; number < 6; ++number) {
            const std::string name = "many/part" + std::to_string(number) + ".dat";
            tree.Write("kit/" + name, KTEST::ArbitraryBytes(3000, 2), 0644);
        }
        more += "file=copy,*.dat,$pathSource$many,$pathTarget$data\n"
                "file=copy,large.bin,$pathSource$many,$pathTarget$data\n"
                "file=copy,part0.dat,$pathSource$many,$pathTarget$data/old\n"
                "file=delete,part0.dat,$pathTarget$data/old\n"
                "directory=delete,$pathTarget$data/old\n"
                "file=symlink,large.bin,$pathTarget$data,$pathTarget$,newest\n"
                "process=start,cp TREE/kit/many/part1.dat TREE/product/share/made\n";
        for (int number = 0; number < 20; ++number) {
            const std::string text = std::to_string(number);
            tree.Write("kit/files/f" + text, KTEST::ArbitraryBytes(90000, 3), 0755);
            more += "file=copy,f" + text + ",$pathSource$files,$pathTarget$share\n";
            more +=
                "profile=put,$pathTargetConfig$$iniFile$,Part" + text + ",Key,value " + text + "\n";
        }
        more += "profile=create,$pathTargetConfig$more.ini\n"
                "profile=put,$pathTargetConfig$list.ini,Files,Old,$pathTarget$share/f19\n"
                "profile=remove_file,$pathTargetConfig$list.ini,Files,f19\n";
        GivenScript(KTEST::Replaced(more, "TREE", tree.Path()));
        // The link goes last: until then there is a product whose removal goes on.
        std::string script = tree.Read("kit/install.ini");
        script.erase(script.find("[remove]"));
        tree.Write(
            "kit/install.ini",
            script + "[remove]\nfile=delete,newest,$pathTarget$\nfile=delete,*,$pathTarget$data\n"
                     "directory=delete,$pathTarget$data\nfile=delete,*,$pathTarget$share\n"
                     "directory=delete,$pathTarget$share\nfile=delete,svc,$pathTargetBin$\n"
                     "directory=delete,$pathTargetBin$\ndirectory=delete,$pathTargetLin$\n"
                     "directory=delete,$pathTargetConfig$\ndirectory=delete,$pathTarget$\n"
                     "file=delete,$serviceName$,/etc/$serviceName$\n"
                     "directory=delete,/etc/$serviceName$\n"
        );
    }

    /// What runs leave, save their log and whether the directory of states, where there is none, is
    /// there.
    std::vector<std::string> Machine() const {
        std::vector<std::string> lines =
            KTEST::MachineTree({tree.Path("product"), "/etc", "/var/lib/ins++"});
        const std::string manifest = "/var/lib/ins++/setuptest/manifest";
        const std::string fingerprint = "/var/lib/ins++/setuptest/fingerprint"; // of the manifest
        std::erase_if(lines, [&](const std::string& line) {
            return line.ends_with("/var/lib/ins++") || line.ends_with("/ins++/setuptest") ||
                   line.find(manifest) != std::string::npos ||
                   line.find(fingerprint) != std::string::npos;
        });
        // Its first line has the name of the run.
        std::istringstream text(KTEST::Slurp(manifest));
        std::string line;
        for (std::getline(text, line); std::getline(text, line);) {
            if (const std::size_t time = line.find("\"modified\":"); time != std::string::npos) {
                line.erase(time, line.find(',', time) - time); // another for each run
            }
            lines.push_back(line);
        }
        return lines;
    }
    std::vector<std::string> Words(const std::string& action) const {
        return {Program(), action, "--kit", tree.Path("kit"), "--quiet"};
    }
    void Clean() {
        Forget();
        tree.Remove("product");
    }

    /// Kills a run of `action` at the places, runs it again, and compares with `undisturbed`.
    void KillAtPlaces(
        const std::string& action,
        unsigned calls,
        const std::vector<std::string>& undisturbed,
        int statusExitCode
    );
    virtual void Restart() { Clean(); }

    unsigned interrupted = 0; ///< runs that left a state file
};

void SetupKilledTest::KillAtPlaces(
    const std::string& action,
    unsigned calls,
    const std::vector<std::string>& undisturbed,
    int statusExitCode
) {
    unsigned killed = 0;
    for (unsigned place = 0; place < places; ++place) {
        const unsigned nth = 1 + place * calls / places;
        SCOPED_TRACE("killed at call " + std::to_string(nth) + " of " + std::to_string(calls));
        Restart();
        int status = 0;
        RunUntil(Words(action), nth, status);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
            continue; // the threads' calls are not the same number each time
        }
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
        ++killed;

        const bool isKnown = fs::exists(stateFile);
        interrupted += isKnown ? 1 : 0;
        EXPECT_EQ(
            Run("SETUP status --kit KIT").out.find("was interrupted") != std::string::npos, isKnown
        );
        const Outcome again = RunSetup(action);
        ASSERT_EQ(again.exitCode, 0) << again.err;
        EXPECT_EQ(again.out.find("was interrupted") != std::string::npos, isKnown) << again.out;

        EXPECT_THAT(KTEST::Changes(undisturbed, Machine()), IsEmpty());
        const Outcome told = RunSetup("status");
        EXPECT_EQ(told.exitCode, statusExitCode);
        EXPECT_THAT(told.out, Not(HasSubstr("interrupted")));
        EXPECT_FALSE(fs::exists(stateFile));
        if (HasFailure()) {
            return; // a hundred times the same helps nobody
        }
    }
    EXPECT_GE(killed, places * 9 / 10);
}

TEST_F(SetupKilledTest, AnInstallThatIsKilledAnywhereIsPutRightByTheNext) {
    Clean();
    int status = 0;
    const unsigned calls = RunUntil(Words("install"), 0, status);
    ASSERT_EQ(status, 0) << RunSetup("install").err;
    ASSERT_GT(calls, places);
    const std::vector<std::string> undisturbed = Machine();
    ASSERT_GT(undisturbed.size(), 40U);
    KillAtPlaces("install", calls, undisturbed, 0);
    // Few are killed before the first rule or behind the last.
    EXPECT_GT(interrupted, places / 2);
    RecordProperty("interrupted", static_cast<int>(interrupted));
    EXPECT_EQ(RunSetup("status", "--verify").exitCode, 0);
}

class SetupKilledRemovalTest : public SetupKilledTest {
  protected:
    void Restart() override {
        Clean();
        ASSERT_EQ(RunSetup("install", "--quiet").exitCode, 0);
    }
};

TEST_F(SetupKilledRemovalTest, ARemovalThatIsKilledAnywhereIsPutRightByTheNext) {
    Restart();
    int status = 0;
    const unsigned calls = RunUntil(Words("remove"), 0, status);
    ASSERT_EQ(status, 0);
    const std::vector<std::string> undisturbed = Machine();
    KillAtPlaces("remove", calls, undisturbed, 3);
}

/// An upgrade with a backup, and its restoration, both killed and repeated. Restoring has to lead to
/// what was there before the upgrade, whatever was killed: the backup is never replaced by one of
/// what the killed run left.
class SetupKilledRestoreTest : public SetupKilledTest {
  protected:
    static constexpr unsigned fewerPlaces = 20; // four runs for each
    static constexpr unsigned placesOfRollback = 12;

    void Upgrade() {
        tree.Write("kit/many/large.bin", KTEST::ArbitraryBytes(700000, 4), 0600);
        tree.Write("kit/files/f3", "edited", 0755);
        std::string script = tree.Read("kit/install.ini");
        script = KTEST::Replaced(script, "file=copy,f5,$pathSource$files,$pathTarget$share\n", "");
        tree.Write(
            "kit/install.ini",
            KTEST::Replaced(
                script,
                "profile=create,",
                "file=delete,f5,$pathTarget$share\nfile=copy,f4,$pathSource$files,$pathTarget$,"
                "new\n"
                "profile=create,"
            )
        );
    }
    void Restart() override {
        Clean();
        tree.Remove("kit");
        fs::copy(tree.Path("kit.1"), tree.Path("kit"), fs::copy_options::recursive);
        ASSERT_EQ(RunSetup("install", "--quiet").exitCode, 0);
        before = Machine();
        Upgrade();
    }
    std::vector<std::string> WordsOfUpgrade() const {
        std::vector<std::string> words = Words("install");
        words.emplace_back("--backup");
        return words;
    }
    /// Kills a run and repeats it with the same words.
    void KillAndRepeat(const std::vector<std::string>& words, unsigned nth, const char* action) {
        SCOPED_TRACE(std::string(action) + " killed at call " + std::to_string(nth));
        int status = 0;
        RunUntil(words, nth, status);
        if (words[1] == "install" && !fs::exists(stateFile) && tree.Exists("product/new")) {
            return; // it was done, so the next one would be another run
        }
        const Outcome again = RunSetup(words[1], words.back());
        // One that was killed behind its last step has nothing to repeat.
        const bool isDone = words[1] == "restore" && again.exitCode == 66 && !fs::exists(stateFile);
        ASSERT_TRUE(again.exitCode == 0 || isDone) << again.exitCode << again.err;
    }

    std::vector<std::string> before;
};

TEST_F(SetupKilledRestoreTest, ABackupLeadsBackToBeforeARunThatWasKilledAnywhere) {
    fs::copy(tree.Path("kit"), tree.Path("kit.1"), fs::copy_options::recursive);
    Restart();
    int status = 0;
    const unsigned callsOfUpgrade = RunUntil(WordsOfUpgrade(), 0, status);
    ASSERT_EQ(status, 0);
    ASSERT_THAT(KTEST::Changes(before, Machine()), Not(IsEmpty()));
    const unsigned callsOfRestore = RunUntil(Words("restore"), 0, status);
    ASSERT_EQ(status, 0) << RunSetup("restore").err;
    ASSERT_THAT(KTEST::Changes(before, Machine()), IsEmpty());
    ASSERT_GT(callsOfRestore, fewerPlaces);
    for (unsigned place = 0; place < fewerPlaces && !HasFailure(); ++place) {
        Restart();
        KillAndRepeat(WordsOfUpgrade(), 1 + place * callsOfUpgrade / fewerPlaces, "install");
        KillAndRepeat(Words("restore"), 1 + place * callsOfRestore / fewerPlaces, "restore");
        EXPECT_THAT(KTEST::Changes(before, Machine()), IsEmpty());
        EXPECT_THAT(RunSetup("status", "--verify").out, HasSubstr("It is as it was installed."));
    }
}

TEST_F(SetupKilledRestoreTest, ARollbackThatWasKilledAnywhereIsDoneByARestoration) {
    fs::copy(tree.Path("kit"), tree.Path("kit.1"), fs::copy_options::recursive);
    std::vector<std::string> words = Words("install");
    words.insert(words.end(), {"--no-check", "--rollback"});
    const auto restart = [&] {
        Restart();
        fs::remove(tree.Path("kit/files/f19")); // copied last
    };
    restart();
    int status = 0;
    const unsigned calls = RunUntil(words, 0, status);
    ASSERT_EQ(WEXITSTATUS(status), 1);
    ASSERT_THAT(KTEST::Changes(before, Machine()), IsEmpty());
    for (unsigned place = 0; place < placesOfRollback && !HasFailure(); ++place) {
        const unsigned nth = calls / 2 + place * calls / 2 / placesOfRollback;
        SCOPED_TRACE("killed at call " + std::to_string(nth) + " of " + std::to_string(calls));
        restart();
        RunUntil(words, nth, status);
        const int expected = fs::exists(stateFile) ? 0 : 66; // nothing more to undo
        const Outcome restored = RunSetup("restore");
        EXPECT_EQ(restored.exitCode, expected) << restored.err;
        EXPECT_THAT(KTEST::Changes(before, Machine()), IsEmpty());
    }
}

} // namespace
