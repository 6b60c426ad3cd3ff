// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/ElfRunPath.h>
#include <setup/kit/KitBundle.h>
#include <setup/kit/KitSeal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include <sys/wait.h>

namespace {

using ::testing::HasSubstr;

/// A kit whose ins-setup is a script, so that what the bundle runs can be seen.
class KitBundleTest : public ::testing::Test {
  protected:
    KitBundleTest() {
        tree.Write("kit/product.ini", "[product]\n");
        tree.Write("kit/sub/data", "bytes");
        tree.Write("kit/sub/ lead and 'quote\" $x", "odd");
        tree.Write(
            "kit/ins-setup", "#!/bin/sh\npwd\ncat sub/data sub/\\ *\nprintf ' <%s>' \"$@\"\n", 0755
        );
    }
    std::string Refusal(const std::string& file) {
        try {
            KSETUP::MakeBundle(tree.Path("kit"), "Product", file);
        } catch (const KSETUP::KSetupFailure& failure) {
            return failure.what();
        }
        return {};
    }
    int Shell(const std::string& line) {
        const int status = std::system( // NOLINT: what users do
            ("cd '" + tree.Path() + "' && " + line + " > out 2> err < /dev/null").c_str()
        );
        return WEXITSTATUS(status);
    }

    KTEST::TemporaryTree tree;
};

TEST_F(KitBundleTest, ABundleRunsTheSetupProgramWithItsArguments) {
    KSETUP::MakeBundle(tree.Path("kit"), "A \"product\" $(exit 3)", tree.Path("it.run"));
    EXPECT_EQ(tree.Mode("it.run"), 0755U);
    EXPECT_EQ(Shell("./it.run --quiet"), 0) << tree.Read("err");
    EXPECT_THAT(tree.Read("out"), HasSubstr("bytesodd <install>"));
    EXPECT_EQ(Shell("./it.run --quiet -- status 'a b' '$HOME'"), 0) << tree.Read("err");
    EXPECT_THAT(tree.Read("out"), HasSubstr("bytesodd <status> <a b> <$HOME>"));
    EXPECT_THAT(tree.List(), ::testing::Not(::testing::Contains(HasSubstr(".bundle."))));
}

TEST_F(KitBundleTest, WhatABundleUnpacksIsRootsWhoeverMadeIt) {
    tree.SetOwner("kit/sub/data", 65534, 65534);
    tree.Write("kit/ins-setup", "#!/bin/sh\nstat -c '%u %g' . sub sub/data\n", 0755);
    EXPECT_EQ(Refusal(tree.Path("it.run")), "");
    EXPECT_EQ(Shell("./it.run --quiet"), 0) << tree.Read("err");
    EXPECT_EQ(tree.Read("out"), "0 0\n0 0\n0 0\n");
}

TEST_F(KitBundleTest, ASealedKitIsASealedBundle) {
    KSETUP::WriteSeal(tree.Path("kit"));
    tree.Write("kit/ins-setup", "#!/bin/sh\nexec sha256sum --strict --quiet -c SHA256SUMS\n", 0755);
    EXPECT_THAT(Refusal(tree.Path("it.run")), HasSubstr("ins-setup: changed"));
    EXPECT_FALSE(tree.Exists("it.run"));
    KSETUP::WriteSeal(tree.Path("kit"));
    EXPECT_EQ(Refusal(tree.Path("it.run")), "");
    EXPECT_EQ(Shell("./it.run --quiet"), 0) << tree.Read("err") << tree.Read("out");
}

TEST_F(KitBundleTest, FilesThatCannotBeABundleAreRefused) {
    tree.Directory("directory");
    EXPECT_THAT(Refusal(tree.Path("directory")), HasSubstr("no file"));
    EXPECT_THAT(Refusal(tree.Path("kit/it.run")), HasSubstr("in the kit"));
    EXPECT_THAT(Refusal(tree.Path("kit/sub/it.run")), HasSubstr("in the kit"));
    EXPECT_THAT(Refusal(tree.Path("missing/it.run")), HasSubstr("has to be there"));
    tree.Write("kit/new\nline", "");
    EXPECT_THAT(Refusal(tree.Path("it.run")), HasSubstr("new?line: makeself cannot"));
    tree.Fifo("kit/pipe");
    EXPECT_THAT(Refusal(tree.Path("it.run")), HasSubstr("pipe: neither a file"));
}

TEST_F(KitBundleTest, AMissingMakeselfIsNamedWithItsPackage) {
    const std::string path = std::getenv("PATH");      // NOLINT: one thread
    ::setenv("PATH", tree.Path("nowhere").c_str(), 1); // NOLINT
    const std::string why = Refusal(tree.Path("it.run"));
    ::setenv("PATH", path.c_str(), 1); // NOLINT
    EXPECT_THAT(why, HasSubstr("apt-get install makeself"));
}

TEST_F(KitBundleTest, AMakeselfThatFailsIsHeard) {
    tree.Write("bin/makeself", "#!/bin/sh\necho no such luck\nexit 1\n", 0755);
    const std::string path = std::getenv("PATH");                 // NOLINT: one thread
    ::setenv("PATH", (tree.Path("bin") + ":" + path).c_str(), 1); // NOLINT
    tree.Write("it.run", "former");
    const std::string why = Refusal(tree.Path("it.run"));
    ::setenv("PATH", path.c_str(), 1); // NOLINT
    EXPECT_THAT(why, HasSubstr("no such luck"));
    EXPECT_EQ(tree.Read("it.run"), "former");
}

TEST(ElfRunPathTest, WhatIsNoProgramIsRefused) {
    for (std::string bytes :
         {std::string(),
          std::string("#!/bin/sh\n"),
          std::string("\x7F"
                      "ELF"),
          std::string("\x7F"
                      "ELF\x02\x01"
          ) + std::string(100, '\xFF')}) {
        EXPECT_THROW(KSETUP::SetRunPathToOrigin(bytes, "x"), KSETUP::KSetupFailure);
    }
}

TEST(ElfRunPathTest, HeadersOfAnotherSizeAreRefused) {
    std::ifstream file("/proc/self/exe", std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(file), {});
    constexpr std::size_t sizeOfHeaders = 54; // e_phentsize; their number is behind it
    bytes.replace(sizeOfHeaders, 4, std::string("\0\0\xFF\xFF", 4));
    EXPECT_THROW(KSETUP::SetRunPathToOrigin(bytes, "x"), KSETUP::KSetupFailure);
}

} // namespace
