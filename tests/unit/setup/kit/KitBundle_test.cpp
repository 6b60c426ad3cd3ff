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
            "kit/ins-setup",
            "#!/bin/sh\ncd ${0%/*}\ncat sub/data sub/\\ *\nprintf ' <%s>' \"$@\"\n",
            0755
        );
    }
    std::string Refusal(const std::string& file) {
        try {
            KSETUP::MakeBundle(tree.Path("kit"), file);
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
    KSETUP::MakeBundle(tree.Path("kit"), tree.Path("it.run"));
    EXPECT_EQ(tree.Mode("it.run"), 0755U);
    EXPECT_EQ(Shell("./it.run"), 0) << tree.Read("err");
    EXPECT_THAT(tree.Read("out"), HasSubstr("bytesodd <install>"));
    EXPECT_EQ(Shell("./it.run plan 'a b' '$HOME'"), 0) << tree.Read("err");
    EXPECT_THAT(tree.Read("out"), HasSubstr("bytesodd <plan> <a b> <$HOME>"));
    EXPECT_EQ(Shell("./it.run --json"), 0) << tree.Read("err");
    EXPECT_THAT(tree.Read("out"), HasSubstr("bytesodd <install> <--json>"));
    EXPECT_THAT(tree.List(), ::testing::Not(::testing::Contains(HasSubstr("bundle"))));
}

TEST_F(KitBundleTest, WhatABundleUnpacksIsRootsWhoeverMadeIt) {
    tree.SetOwner("kit/sub/data", 65534, 65534);
    tree.Write("kit/ins-setup", "#!/bin/sh\ncd ${0%/*}\nstat -c '%u %g' . sub sub/data\n", 0755);
    EXPECT_EQ(Refusal(tree.Path("it.run")), "");
    EXPECT_EQ(Shell("./it.run"), 0) << tree.Read("err");
    EXPECT_EQ(tree.Read("out"), "0 0\n0 0\n0 0\n");
}

TEST_F(KitBundleTest, ASealedKitIsASealedBundle) {
    KSETUP::WriteSeal(tree.Path("kit"));
    tree.Write(
        "kit/ins-setup",
        "#!/bin/sh\ncd ${0%/*}\nexec sha256sum --strict --quiet -c SHA256SUMS\n",
        0755
    );
    EXPECT_THAT(Refusal(tree.Path("it.run")), HasSubstr("ins-setup: changed"));
    EXPECT_FALSE(tree.Exists("it.run"));
    KSETUP::WriteSeal(tree.Path("kit"));
    EXPECT_EQ(Refusal(tree.Path("it.run")), "");
    EXPECT_EQ(Shell("./it.run"), 0) << tree.Read("err") << tree.Read("out");
}

TEST_F(KitBundleTest, FilesThatCannotBeABundleAreRefused) {
    tree.Directory("directory");
    EXPECT_THAT(Refusal(tree.Path("directory")), HasSubstr("no file"));
    EXPECT_THAT(Refusal(tree.Path("kit/it.run")), HasSubstr("in the kit"));
    EXPECT_THAT(Refusal(tree.Path("kit/sub/it.run")), HasSubstr("in the kit"));
    EXPECT_THAT(Refusal(tree.Path("missing/it.run")), HasSubstr("has to be there"));
    tree.Fifo("kit/pipe");
    EXPECT_THAT(Refusal(tree.Path("it.run")), HasSubstr("pipe: neither a file"));
}

TEST_F(KitBundleTest, NamesOfAnyBytesArePacked) {
    tree.Write("kit/new\nline", "odd");
    EXPECT_EQ(Refusal(tree.Path("it.run")), "");
    EXPECT_EQ(Shell("./it.run --extract new"), 0) << tree.Read("err");
    EXPECT_EQ(tree.Read("new/new\nline"), "odd");
    EXPECT_EQ(Shell("./it.run --list"), 0) << tree.Read("err");
    EXPECT_THAT(tree.Read("out"), HasSubstr(" new?line\n"));
}

TEST_F(KitBundleTest, OnlyAnEmptyDirectoryIsExtractedTo) {
    EXPECT_EQ(Refusal(tree.Path("it.run")), "");
    tree.Write("full/mine", "");
    EXPECT_EQ(Shell("./it.run --extract full"), 73);
    EXPECT_THAT(tree.Read("err"), HasSubstr("full: this directory is not empty"));
    tree.Directory("empty");
    EXPECT_EQ(Shell("./it.run --extract empty"), 0) << tree.Read("err");
    EXPECT_EQ(tree.Read("empty/sub/data"), "bytes");
    EXPECT_EQ(Shell("./it.run --extract"), 64);
}

TEST(ElfRunPathTest, ALibraryLooksInNoDirectoryOfTheSystem) {
    std::ifstream file("/proc/self/exe", std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    std::string changed = bytes;
    ASSERT_TRUE(KSETUP::SetNoDefaultLibraries(changed, "x"));
    KTEST::TemporaryTree tree;
    tree.Write("it", changed, 0755);
    const std::string look = "readelf -d '" + tree.Path("it") + "' | grep -q 'FLAGS_1.*NODEFLIB'";
    EXPECT_EQ(std::system(look.c_str()), 0); // NOLINT(concurrency-mt-unsafe): one thread
    EXPECT_EQ(changed.size(), bytes.size());
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
