// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bundle/BundleFormat.h>
#include <bundle/KBundleError.h>

namespace {

using KBUNDLE::KBundleEntry;
using KBUNDLE::KBundleTable;
using ::testing::HasSubstr;

KBundleEntry FileEntry(const std::string& name) {
    return {.name = name, .mode = 0644, .byteCount = 3};
}

KBundleEntry DirectoryEntry(const std::string& name) {
    return {.name = name, .isDirectory = true, .mode = 0755};
}

std::string WhyRefused(const std::string& bytes) {
    try {
        static_cast<void>(KBUNDLE::ReadBundleTable(bytes));
    } catch (const KBUNDLE::KBundleError& error) {
        EXPECT_EQ(error.GetKind(), KBUNDLE::KBundleError::Kind::Damaged);
        return error.what();
    }
    return "";
}

TEST(BundleTableTest, IsReadAsItWasWritten) {
    KBundleEntry file = FileEntry("sub/ odd\nname");
    file.mode = 04755;
    file.seconds = -1;
    file.nanoseconds = 999999999;
    file.byteCount = 0x123456789ABCDEF0U;
    file.sha256.fill(0xAB);
    const auto read = KBUNDLE::ReadBundleTable(ToBytes(KBundleTable{
        .place = "/opt/it", .entries = {DirectoryEntry("sub"), file}}));
    EXPECT_EQ(read.place, "/opt/it");
    ASSERT_EQ(read.entries.size(), 2U);
    EXPECT_TRUE(read.entries[0].isDirectory);
    const KBundleEntry& back = read.entries[1];
    EXPECT_EQ(back.name, file.name);
    EXPECT_EQ(back.mode, file.mode);
    EXPECT_EQ(back.seconds, file.seconds);
    EXPECT_EQ(back.nanoseconds, file.nanoseconds);
    EXPECT_EQ(back.byteCount, file.byteCount);
    EXPECT_EQ(back.sha256, file.sha256);
}

struct KBadTable {
    const char* name;
    std::vector<KBundleEntry> entries;
    const char* why;
};

class BadBundleTableTest : public ::testing::TestWithParam<KBadTable> {};

TEST_P(BadBundleTableTest, IsRefused) {
    EXPECT_THAT(
        WhyRefused(ToBytes(KBundleTable{.place = "", .entries = GetParam().entries})),
        HasSubstr(GetParam().why)
    );
}

INSTANTIATE_TEST_SUITE_P(
    Names,
    BadBundleTableTest,
    ::testing::Values(
        KBadTable{"Absolute", {FileEntry("/etc/passwd")}, "leads out"},
        KBadTable{"Upwards", {FileEntry("../x")}, "leads out"},
        KBadTable{"UpwardsLater", {DirectoryEntry("a"), FileEntry("a/../../x")}, "leads out"},
        KBadTable{"UpwardsAtTheEnd", {DirectoryEntry("a"), DirectoryEntry("a/..")}, "leads out"},
        KBadTable{"Dot", {FileEntry(".")}, "leads out"},
        KBadTable{"Empty", {FileEntry("")}, "leads out"},
        KBadTable{"EmptyPart", {DirectoryEntry("a"), FileEntry("a//b")}, "leads out"},
        KBadTable{"SlashAtTheEnd", {DirectoryEntry("a/")}, "leads out"},
        KBadTable{"Nul", {FileEntry(std::string("a\0b", 3))}, "leads out"},
        KBadTable{"LongPart", {FileEntry(std::string(256, 'a'))}, "leads out"},
        KBadTable{"NoDirectory", {FileEntry("a/b")}, "not there"},
        KBadTable{"DirectoryLater", {FileEntry("a/b"), DirectoryEntry("a")}, "not there"},
        KBadTable{"BelowAFile", {FileEntry("a"), FileEntry("a/b")}, "not there"},
        KBadTable{"Twice", {FileEntry("a"), FileEntry("a")}, "twice"},
        KBadTable{"FileAndDirectory", {DirectoryEntry("a"), FileEntry("a")}, "twice"}
    ),
    KTEST::NameOfRow{}
);

TEST(BundleTableTest, OneThatIsCutAnywhereIsRefused) {
    const std::string whole =
        ToBytes(KBundleTable{.place = "/x", .entries = {DirectoryEntry("d"), FileEntry("d/f")}});
    EXPECT_EQ(WhyRefused(whole), "");
    for (std::size_t bytes = 0; bytes < whole.size(); ++bytes) {
        EXPECT_NE(WhyRefused(whole.substr(0, bytes)), "") << bytes;
    }
    EXPECT_THAT(WhyRefused(whole + "x"), HasSubstr("longer"));
}

TEST(BundleTableTest, AnEntryOfAnotherKindIsRefused) {
    std::string bytes = ToBytes(KBundleTable{.place = "", .entries = {DirectoryEntry("d")}});
    bytes[bytes.find("d", 8)] = 'l';
    EXPECT_THAT(WhyRefused(bytes), HasSubstr("neither file nor directory"));
}

TEST(BundleTableTest, ModesAndTimesThatThereAreNotAreRefused) {
    KBundleEntry entry = DirectoryEntry("d");
    entry.mode = 010000;
    EXPECT_THAT(
        WhyRefused(ToBytes(KBundleTable{.place = "", .entries = {entry}})), HasSubstr("mode")
    );
    entry = DirectoryEntry("d");
    entry.nanoseconds = 1000000000;
    EXPECT_THAT(
        WhyRefused(ToBytes(KBundleTable{.place = "", .entries = {entry}})), HasSubstr("time")
    );
}

/// A table of two architectures.
KBundleTable Joined(std::vector<KBundleEntry> entries) {
    return {
        .place = "/opt/it",
        .entries = std::move(entries),
        .heads = {{"x86_64", 4096, 100}, {"aarch64", 8192, 50}}};
}

KBundleEntry For(KBUNDLE::KArchitectureBits architectures, KBundleEntry entry) {
    entry.architectures = architectures;
    return entry;
}

TEST(JoinedTableTest, IsReadAsItWasWritten) {
    const std::string bytes = ToBytes(Joined(
        {For(3, DirectoryEntry("d")),
         For(1, FileEntry("program")),
         For(2, FileEntry("program")),
         For(2, DirectoryEntry("either")),
         For(1, FileEntry("either")),
         FileEntry("d/shared")}
    ));
    const KBundleTable table = KBUNDLE::ReadBundleTable(bytes);
    EXPECT_EQ(ToBytes(table), bytes);
    ASSERT_EQ(table.heads.size(), 2U);
    EXPECT_EQ(table.heads[1].architecture, "aarch64");
    EXPECT_EQ(table.heads[1].offset, 8192U);
    EXPECT_EQ(table.heads[1].byteCount, 50U);
    ASSERT_EQ(table.entries.size(), 6U);
    EXPECT_EQ(table.entries[2].architectures, 2U);
    EXPECT_EQ(table.entries[5].architectures, 3U);
}

/// The format of one architecture has not changed.
TEST(JoinedTableTest, ATableOfOneArchitectureIsAsItWas) {
    const std::string bytes =
        ToBytes(KBundleTable{.place = "/x", .entries = {DirectoryEntry("d")}});
    constexpr char known[] = "InsTabl1\x02\0/x\x01\0\0\0\0\0\0\0d\xED\x01\0\0"
                             "\0\0\0\0\0\0\0\0\0\0\0\0\x01\0d";
    EXPECT_EQ(bytes, std::string(known, sizeof(known) - 1));
    EXPECT_TRUE(ToBytes(Joined({})).starts_with("InsTabl2"));
}

struct KBadJoined {
    const char* name;
    std::vector<KBundleEntry> entries;
    const char* why;
};

class BadJoinedTableTest : public ::testing::TestWithParam<KBadJoined> {};

TEST_P(BadJoinedTableTest, IsRefused) {
    EXPECT_THAT(WhyRefused(ToBytes(Joined(GetParam().entries))), HasSubstr(GetParam().why));
}

INSTANTIATE_TEST_SUITE_P(
    Entries,
    BadJoinedTableTest,
    ::testing::Values(
        KBadJoined{"Twice", {For(1, FileEntry("a")), For(3, FileEntry("a"))}, "twice"},
        KBadJoined{
            "FileAndDirectory", {For(2, DirectoryEntry("a")), For(2, FileEntry("a"))}, "twice"},
        KBadJoined{
            "DirectoryOfAnother",
            {For(1, DirectoryEntry("a")), For(2, FileEntry("a/b"))},
            "not there"},
        KBadJoined{
            "DirectoryOfOneOfBoth",
            {For(1, DirectoryEntry("a")), For(3, FileEntry("a/b"))},
            "not there"},
        KBadJoined{
            "FileOfAnother",
            {For(1, DirectoryEntry("a")), For(2, FileEntry("a")), For(2, FileEntry("a/b"))},
            "not there"},
        KBadJoined{"Upwards", {For(1, FileEntry("../x"))}, "leads out"},
        KBadJoined{"ForNone", {For(0, FileEntry("a"))}, "it has not"}
    ),
    KTEST::NameOfRow{}
);

TEST(JoinedTableTest, AnEntryForAThirdArchitectureIsRefused) {
    std::string bytes = ToBytes(Joined({For(3, FileEntry("a"))}));
    bytes[bytes.rfind("f\x03") + 1] = 4;
    EXPECT_THAT(WhyRefused(bytes), HasSubstr("it has not"));
}

TEST(JoinedTableTest, OneThatIsCutAnywhereIsRefused) {
    const std::string whole =
        ToBytes(Joined({For(1, DirectoryEntry("d")), For(1, FileEntry("d/f"))}));
    EXPECT_EQ(WhyRefused(whole), "");
    for (std::size_t bytes = 0; bytes < whole.size(); ++bytes) {
        EXPECT_NE(WhyRefused(whole.substr(0, bytes)), "") << bytes;
    }
}

TEST(JoinedTableTest, ArchitecturesThatThereAreNotAreRefused) {
    KBundleTable table = Joined({});
    table.heads[1].architecture = "x86_64";
    EXPECT_THAT(WhyRefused(ToBytes(table)), HasSubstr("architecture twice"));
    for (const char* name : {"", "X", "a b", "../x", "$(x)", "a.longer.name.of.17"}) {
        table.heads[1].architecture = name;
        EXPECT_THAT(WhyRefused(ToBytes(table)), HasSubstr("one that there is not")) << name;
    }
    std::string none = ToBytes(Joined({}));
    none[none.find("/opt/it") + 7] = 0;
    EXPECT_THAT(WhyRefused(none), HasSubstr("for no architecture"));
    none[none.find("/opt/it") + 7] = 33;
    EXPECT_THAT(WhyRefused(none), HasSubstr("too many"));
}

KBUNDLE::KBundleEnd SomeEnd() {
    KBUNDLE::KBundleEnd end;
    end.headBytes = 100;
    end.dataBytes = 20;
    end.tableBytes = 3;
    end.tableContentBytes = 7;
    end.headSha256.fill(1);
    end.tableSha256.fill(2);
    return end;
}

constexpr std::uint64_t fileBytes = 123 + KBUNDLE::bundleEndBytes;

TEST(BundleEndTest, IsReadAsItWasWritten) {
    const std::string bytes = ToBytes(SomeEnd());
    EXPECT_EQ(bytes.size(), KBUNDLE::bundleEndBytes);
    const auto end = KBUNDLE::ReadBundleEnd(bytes, fileBytes);
    ASSERT_TRUE(end);
    EXPECT_EQ(ToBytes(*end), bytes);
}

TEST(BundleEndTest, OneOfAFileOfAnotherLengthIsRefused) {
    const std::string bytes = ToBytes(SomeEnd());
    EXPECT_FALSE(KBUNDLE::ReadBundleEnd(bytes, fileBytes - 1));
    EXPECT_FALSE(KBUNDLE::ReadBundleEnd(bytes, fileBytes + 1));
    EXPECT_FALSE(KBUNDLE::ReadBundleEnd(bytes.substr(1), fileBytes));
}

TEST(BundleEndTest, PartsWhoseSumOverflowsAreRefused) {
    KBUNDLE::KBundleEnd end = SomeEnd();
    end.headBytes = ~std::uint64_t{0};
    end.dataBytes = 101 + 20;
    EXPECT_FALSE(KBUNDLE::ReadBundleEnd(ToBytes(end), fileBytes));
}

TEST(BundleEndTest, ATableThatFillsTheMemoryIsRefused) {
    KBUNDLE::KBundleEnd end = SomeEnd();
    end.tableContentBytes = KBUNDLE::largestTable + 1;
    EXPECT_FALSE(KBUNDLE::ReadBundleEnd(ToBytes(end), fileBytes));
}

TEST(BundleEndTest, AFileThatIsNoBundleHasNone) {
    EXPECT_FALSE(KBUNDLE::ReadBundleEnd(std::string(KBUNDLE::bundleEndBytes, 'x'), fileBytes));
    std::string later = ToBytes(SomeEnd());
    later[KBUNDLE::bundleEndBytes - 9] = 1;
    EXPECT_FALSE(KBUNDLE::ReadBundleEnd(later, fileBytes));
}

} // namespace
