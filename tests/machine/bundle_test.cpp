// SPDX-License-Identifier: MIT
//
// Bundles where they are to run: on systems that have nothing of those on which they were made.
#include "SetupRig.h"

#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/wait.h>

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// A minimal Debian system, in "root" below the tree, and kits of the machine that has everything.
class BundleOnMinimalSystemTest : public ::testing::Test {
  protected:
    struct Outcome {
        int exitCode;
        std::string out;
    };

    BundleOnMinimalSystemTest() {
        tree.Directory("root");
        GivenStep(INSPP_SOURCE "/tests/machine/minimal_root root > packages");
    }

    static std::string Program() {
        return std::filesystem::canonical("/proc/self/exe").parent_path().string() + "/ins-setup";
    }

    Outcome Run(const std::string& line) {
        const std::string command =
            "cd '" + tree.Path() + "' && { " + line + "\n} > out 2>&1 < /dev/null";
        const int status = std::system(command.c_str()); // NOLINT: what administrators do
        return {WEXITSTATUS(status), tree.Read("out")};
    }

    void GivenStep(const std::string& line) {
        const Outcome outcome = Run(line);
        ASSERT_EQ(outcome.exitCode, 0) << line << "\n" << outcome.out;
    }

    /// The first kit of a new author, with `change` made to it, as /root/it.run of the system.
    void GivenBundle(const std::string& change = ":") {
        GivenStep(
            Program() + " kit new kit && " + change + " && " + Program() +
            " kit seal --kit kit && " + Program() + " kit bundle --kit kit -o root/root/it.run"
        );
    }

    /// On the system, with its own devices and processes to see and nothing of the environment.
    Outcome RunThere(const std::string& line) {
        tree.Write("root/root/step", line + "\n");
        return Run("exec unshare --mount --propagation private sh -c '"
                   "mount --rbind /dev root/dev && mount --rbind /proc root/proc && "
                   "mount -t tmpfs none root/run && "
                   "exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin chroot root sh /root/step'");
    }

    KTEST::TemporaryTree tree;
};

/// Without this the others would prove little.
TEST_F(BundleOnMinimalSystemTest, TheSystemHasNoCompilerAndNoneOfOurLibraries) {
    EXPECT_THAT(
        RunThere("for name in cc c++ gcc g++ clang ld make cmake; do command -v $name; "
                 "done; find / -xdev \\( -name 'libcrypto.*' -o -name 'libins++*' -o -name "
                 "'libdplinsup*' -o -name '*.a' -o -name stdio.h \\) -not -path '/proc/*'")
            .out,
        IsEmpty()
    );
    GivenStep("cp " + Program() + " root/root/ins-setup");
    const Outcome alone = RunThere("/root/ins-setup --version");
    EXPECT_EQ(alone.exitCode, 127);
    EXPECT_THAT(alone.out, HasSubstr("cannot open shared object file"));
}

TEST_F(BundleOnMinimalSystemTest, ABundleInstallsVerifiesAndRemoves) {
    GivenBundle();
    const Outcome install = RunThere("/root/it.run");
    EXPECT_EQ(install.exitCode, 0) << install.out;
    EXPECT_THAT(install.out, HasSubstr("is installed in /opt/kit"));
    EXPECT_THAT(RunThere("/opt/kit/lin/x86_64/hello").out, HasSubstr("Hello"));
    EXPECT_EQ(RunThere("/root/it.run status --verify").exitCode, 0);
    GivenStep("echo '# more' >> root/opt/kit/lin/x86_64/hello");
    const Outcome changed = RunThere("/root/it.run status --verify");
    EXPECT_EQ(changed.exitCode, 4) << changed.out;
    const Outcome remove = RunThere("/root/it.run remove --yes");
    EXPECT_EQ(remove.exitCode, 0) << remove.out;
    EXPECT_FALSE(tree.Exists("root/opt/kit"));
    EXPECT_EQ(RunThere("/root/it.run status").exitCode, 3);
    EXPECT_THAT(RunThere("ls /tmp").out, IsEmpty());
}

TEST_F(BundleOnMinimalSystemTest, ABundleSpeaksTheLanguageOfItsUser) {
    GivenBundle("sed -i '/^.remove/i "
                "service=install,$serviceName$,Hello,/opt/kit/lin/x86_64/hello,once' "
                "kit/install.ini");
    const std::string install = "/root/it.run install --reinstall --offline-services";
    const Outcome german = RunThere("LANG=de_DE.UTF-8 " + install);
    EXPECT_EQ(german.exitCode, 0) << german.out;
    EXPECT_THAT(german.out, HasSubstr(" Dienst wird installiert\n"));
    EXPECT_THAT(german.out, HasSubstr("ist in /opt/kit installiert."));
    EXPECT_THAT(RunThere("LANG=fr_FR.UTF-8 " + install).out, HasSubstr(" Installing service\n"));
    EXPECT_THAT(
        RunThere("LANG=de_DE.UTF-8 " + install + " --json-events").out,
        HasSubstr("\"Installing service\"")
    );
}

/// A root that holds busybox, the bundle and nothing else: no libraries, no loader, no accounts.
class BundleOnBusyboxTest : public BundleOnMinimalSystemTest {
  protected:
    BundleOnBusyboxTest() {
        GivenStep("rm -rf root && mkdir -p root/bin root/dev root/proc root/run root/root root/tmp "
                  "root/opt root/etc root/var/tmp root/var/lib root/var/log && cp /bin/busybox "
                  "root/bin/ && "
                  "for name in sh ls cat mount grep mkdir; do ln -s busybox root/bin/$name; done");
    }
};

TEST_F(BundleOnBusyboxTest, ABundleInstallsVerifiesAndRemoves) {
    GivenBundle();
    const Outcome install = RunThere("/root/it.run");
    EXPECT_EQ(install.exitCode, 0) << install.out;
    EXPECT_THAT(install.out, HasSubstr("is installed in /opt/kit"));
    EXPECT_THAT(RunThere("/opt/kit/lin/x86_64/hello").out, HasSubstr("Hello"));
    EXPECT_EQ(RunThere("/root/it.run status --verify").exitCode, 0);
    const Outcome remove = RunThere("/root/it.run remove --yes");
    EXPECT_EQ(remove.exitCode, 0) << remove.out;
    EXPECT_FALSE(tree.Exists("root/opt/kit"));
    EXPECT_EQ(RunThere("/root/it.run status").exitCode, 3);
    EXPECT_THAT(RunThere("ls -A /opt /tmp /var/tmp").out, ::testing::Not(HasSubstr("bundle")));
}

/// There is no locale at all. What is asked without the kit's content has the texts too.
TEST_F(BundleOnBusyboxTest, ABundleSpeaksTheLanguageOfItsUser) {
    GivenBundle();
    const std::string german = "LANG=de_DE.UTF-8 /root/it.run ";
    EXPECT_THAT(RunThere(german + "status").out, HasSubstr("ist nicht installiert."));
    EXPECT_THAT(RunThere(german + "--help").out, HasSubstr("Aufruf: "));
    EXPECT_THAT(RunThere(german + "install").out, HasSubstr("ist in /opt/kit installiert."));
    EXPECT_THAT(RunThere(german + "status").out, HasSubstr("ist in /opt/kit installiert."));
    EXPECT_THAT(RunThere(german + "status --json").out, HasSubstr("\"result\":\"done\""));
    EXPECT_THAT(
        RunThere("LANGUAGE=de LANG=C.UTF-8 /root/it.run status").out,
        HasSubstr("ist in /opt/kit installiert.")
    );
    EXPECT_THAT(RunThere("/root/it.run status").out, HasSubstr("is installed in /opt/kit."));
}

TEST_F(BundleOnBusyboxTest, ABundleNeedsNeitherProcNorTemporaryDirectories) {
    GivenBundle();
    GivenStep("rm -r root/tmp root/var/tmp && cp root/root/it.run root/it.run && "
              "rmdir root/proc");
    const Outcome plan =
        Run("mount --bind /dev root/dev; chroot root /it.run plan install; code=$?; "
            "umount root/dev; exit $code");
    EXPECT_EQ(plan.exitCode, 0) << plan.out;
    EXPECT_THAT(plan.out, HasSubstr("create directory /opt/kit"));
}

TEST_F(BundleOnBusyboxTest, AReadOnlyRootNeedsOnlyTheProductsPlaces) {
    GivenBundle();
    const Outcome install =
        RunThere("mount -t tmpfs -o mode=755 none /opt && mount -t tmpfs -o mode=755 none /etc && "
                 "mount -t tmpfs -o mode=755 none /var "
                 "&& mkdir /var/log /var/lib && "
                 "mount -o remount,bind,ro / 2> /dev/null; TMPDIR=/nowhere /root/it.run && "
                 "TMPDIR=/nowhere /root/it.run status --verify");
    EXPECT_EQ(install.exitCode, 0) << install.out;
    EXPECT_THAT(install.out, HasSubstr("It is as it was installed."));
}

} // namespace
