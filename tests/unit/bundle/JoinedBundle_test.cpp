// SPDX-License-Identifier: MIT
#include "../../support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <bundle/Architecture.h>
#include <bundle/JoinedHead.h>
#include <bundle/KBundleError.h>
#include <bundle/UnpackBundle.h>
#include <bundle/WriteBundle.h>
#include <sys/files/FileCalls.h>

namespace {

using KBUNDLE::KBundleError;
using ::testing::HasSubstr;

/// A bundle of two architectures, "it.run".
class JoinedBundleTest : public ::testing::Test {
  protected:
    JoinedBundleTest() {
        tree.Write("head1", std::string(5000, '1'));
        tree.Write("head2", std::string(4096, '2'));
        for (const char* one : {"kit1", "kit2"}) {
            const std::string kit = one;
            tree.Write(kit + "/product.ini", "in front");
            tree.Write(kit + "/program", "of " + kit, 0755);
            tree.Write(kit + "/sub/data", shared);
            tree.Write(kit + "/sub/mode", "the same", kit == "kit1" ? 0644 : 0755);
        }
        tree.Write("kit1/own/only", "of the first");
        tree.Write("kit2/own", "a file");
        tree.Directory("out");
        Write();
    }

    void Write(const std::string& name = "it.run") {
        KBUNDLE::WriteJoinedBundle(
            {{"x86_64", tree.Path("head1"), tree.Path("kit1")},
             {"aarch64", tree.Path("head2"), tree.Path("kit2")}},
            "/opt/it",
            tree.Path(name)
        );
    }

    KBUNDLE::KBundleReader Open() {
        struct stat status {};
        EXPECT_EQ(KSYS::OpenRegular(tree.Path("it.run").c_str(), file, status), 0U);
        return {file.Get(), "it.run"};
    }

    std::string Refusal() {
        try {
            VerifyBundle(Open());
        } catch (const KBundleError& error) {
            return error.what();
        }
        return "";
    }

    void ExpectUnpacked(const std::string& architecture, const std::string& kit) {
        KBUNDLE::KBundleReader bundle = Open();
        ASSERT_TRUE(bundle.Choose(architecture));
        UnpackBundle(bundle, tree.Path("out"));
        for (const auto& entry : std::filesystem::recursive_directory_iterator(tree.Path(kit))) {
            const auto below = entry.path().lexically_relative(tree.Path(kit)).string();
            ASSERT_TRUE(tree.Exists("out/" + below)) << below;
            EXPECT_EQ(tree.Mode("out/" + below), tree.Mode(kit + "/" + below)) << below;
            if (entry.is_regular_file()) {
                EXPECT_EQ(tree.Read("out/" + below), tree.Read(kit + "/" + below)) << below;
            }
        }
        EXPECT_EQ(
            std::distance(
                std::filesystem::recursive_directory_iterator(tree.Path("out")),
                std::filesystem::recursive_directory_iterator()
            ),
            std::distance(
                std::filesystem::recursive_directory_iterator(tree.Path(kit)),
                std::filesystem::recursive_directory_iterator()
            )
        );
    }

    KTEST::TemporaryTree tree;
    KSYS::KDescriptor file;
    const std::string shared = std::string(1 << 20, 'x') + "end";
};

TEST_F(JoinedBundleTest, EachArchitectureGetsItsOwn) {
    ExpectUnpacked("x86_64", "kit1");
}

TEST_F(JoinedBundleTest, SoDoesTheOther) {
    ExpectUnpacked("aarch64", "kit2");
}

TEST_F(JoinedBundleTest, AnArchitectureThatIsNotInItCannotBeChosen) {
    EXPECT_FALSE(Open().Choose("x86"));
    EXPECT_FALSE(Open().Choose(""));
}

TEST_F(JoinedBundleTest, WhatIsTheSameIsInItOnce) {
    const KBUNDLE::KBundleTable table = Open().GetTable();
    std::map<std::string, std::vector<KBUNDLE::KArchitectureBits>> found;
    for (const KBUNDLE::KBundleEntry& entry : table.entries) {
        found[entry.name].push_back(entry.architectures);
    }
    using ::testing::ElementsAre;
    EXPECT_THAT(found["product.ini"], ElementsAre(3U));
    EXPECT_THAT(found["sub"], ElementsAre(3U));
    EXPECT_THAT(found["sub/data"], ElementsAre(3U));
    EXPECT_THAT(found["sub/mode"], ElementsAre(1U, 2U));
    EXPECT_THAT(found["program"], ElementsAre(1U, 2U));
    EXPECT_THAT(found["own"], ElementsAre(1U, 2U));
    EXPECT_THAT(found["own/only"], ElementsAre(1U));
}

TEST_F(JoinedBundleTest, TheSameKitsGiveTheSameBytes) {
    Write("again.run");
    EXPECT_EQ(tree.Read("again.run"), tree.Read("it.run"));
    EXPECT_EQ(tree.Mode("it.run"), 0755U);
}

TEST_F(JoinedBundleTest, EachProgramIsWhereItsTableAndItsScriptSay) {
    const KBUNDLE::KBundleReader bundle = Open();
    const auto heads = bundle.GetHeads();
    ASSERT_EQ(heads.size(), 2U);
    EXPECT_EQ(bundle.ReadHead(heads[0]), tree.Read("head1"));
    EXPECT_EQ(bundle.ReadHead(heads[1]), tree.Read("head2"));
    const std::string whole = tree.Read("it.run");
    EXPECT_TRUE(whole.starts_with("#!/bin/sh -\n"));
    EXPECT_THAT(whole, HasSubstr("set -- x86_64 2 2 aarch64 4 1\n"));
    EXPECT_THAT(whole, HasSubstr("the bundle is for x86_64 and aarch64, and"));
    EXPECT_THAT(whole.substr(0, heads[0].offset), ::testing::Not(HasSubstr("S@")));
    EXPECT_EQ(heads[0].offset, 2 * 4096U);
    EXPECT_EQ(heads[1].offset, 4 * 4096U);
    EXPECT_EQ(bundle.GetEnd().headBytes, 5 * 4096U);
}

/// What is for the other architecture too.
TEST_F(JoinedBundleTest, ItIsVerifiedAsAWhole) {
    EXPECT_EQ(Refusal(), "");
    const std::string whole = tree.Read("it.run");
    for (const std::size_t at : {100U, 3 * 4096U, 4 * 4096U}) {
        std::string changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        tree.Write("it.run", changed);
        EXPECT_THAT(Refusal(), HasSubstr("program in front")) << at;
    }
    tree.Write("kit2/program", "of kit3", 0755);
    Write("other.run");
    const std::string other = tree.Read("other.run");
    const auto end = *KBUNDLE::ReadBundleEnd(whole, whole.size());
    const auto others = *KBUNDLE::ReadBundleEnd(other, other.size());
    // The data of one behind the programs of it, with the table of the other one.
    KBUNDLE::KBundleEnd mixed = others;
    mixed.dataBytes = end.dataBytes;
    tree.Write(
        "it.run",
        whole.substr(0, end.headBytes + end.dataBytes) +
            other.substr(others.headBytes + others.dataBytes, others.tableBytes) + ToBytes(mixed)
    );
    EXPECT_THAT(Refusal(), HasSubstr("program was changed"));
}

TEST_F(JoinedBundleTest, AProgramThatIsNotInFrontOfTheFilesIsRefused) {
    const std::string whole = tree.Read("it.run");
    auto end = *KBUNDLE::ReadBundleEnd(whole, whole.size());
    // The same without its last program.
    end.headBytes -= 4096;
    tree.Write(
        "it.run",
        whole.substr(0, 4 * 4096) + whole.substr(5 * 4096, end.dataBytes + end.tableBytes) +
            ToBytes(end)
    );
    EXPECT_THAT(Refusal(), HasSubstr("the program for aarch64 is not in front of it"));
}

TEST_F(JoinedBundleTest, ItsNeedsAreThoseOfOneArchitecture) {
    KBUNDLE::KBundleReader bundle = Open();
    const auto all = NeedsOf(bundle.GetTable(), KBUNDLE::BundlePart::Everything, 1);
    ASSERT_TRUE(bundle.Choose("aarch64"));
    const auto one = NeedsOf(bundle.GetTable(), KBUNDLE::BundlePart::Everything, 1);
    EXPECT_EQ(all.entries, 10U);
    EXPECT_EQ(one.entries, 6U); // five files, a directory
}

TEST(ArchitectureTest, ThatOfThisProgramIsItsOwn) {
    const KBUNDLE::KArchitecture& own = KBUNDLE::OwnArchitecture();
    EXPECT_EQ(own.name, sizeof(void*) == 8 ? "x86_64" : "x86") << "or add that of this machine";
    EXPECT_EQ(own.loader, sizeof(void*) == 8 ? "ld-linux-x86-64.so.2" : "ld-linux.so.2");
}

TEST(ArchitectureTest, IsToldByTheBeginOfAProgram) {
    std::string elf = "\x7F"
                      "ELF\x02\x01\x01" +
                      std::string(11, '\0') + std::string("\xB7\0", 2);
    ASSERT_NE(KBUNDLE::FindArchitecture(elf), nullptr);
    EXPECT_EQ(KBUNDLE::FindArchitecture(elf)->name, "aarch64");
    EXPECT_EQ(KBUNDLE::FindArchitecture(elf.substr(0, 19)), nullptr);
    elf[18] = 0x3E;
    EXPECT_EQ(KBUNDLE::FindArchitecture(elf)->name, "x86_64");
    elf[4] = 1; // programs of 32 bits on a processor of 64
    EXPECT_EQ(KBUNDLE::FindArchitecture(elf), nullptr);
    elf[18] = 3;
    EXPECT_EQ(KBUNDLE::FindArchitecture(elf)->name, "x86");
    elf[19] = 1;
    EXPECT_EQ(KBUNDLE::FindArchitecture(elf), nullptr);
    EXPECT_EQ(KBUNDLE::FindArchitecture("#!/bin/sh\n and something more"), nullptr);
}

} // namespace
