// SPDX-License-Identifier: MIT
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/KProfile.h>
#include <sup++/SvcCommandLine.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KProfile;
using testing::ElementsAre;
using testing::IsEmpty;

class KProfileFileTest : public testing::Test {
  protected:
    std::string Path(const std::string& relative = "p.ini") const { return tree.Path(relative); }
    std::string Bytes() const { return tree.Read("p.ini"); }
    void GivenFile() { tree.Write("p.ini", "[s]\na=1\n"); }
    void Put(const std::string& relative, const std::string& key, const std::string& value) {
        KProfile(tree.Path(relative)).PutString("s", key, value);
    }
    unsigned CodeOfBinding(const std::string& relative) {
        const HangGuard guard;
        return CodeOf([&] { KProfile profile(tree.Path(relative)); });
    }
    unsigned CodeOfOpen(const std::string& relative) {
        const HangGuard guard;
        KProfile profile;
        return CodeOf([&] { profile.Open(tree.Path(relative)); });
    }

    TemporaryTree tree;
};

// Binding, opening, creating

TEST_F(KProfileFileTest, BindingToAMissingFileIsEmptyContentAndMakesNothing) {
    const KProfile profile(Path());
    EXPECT_TRUE(profile.HasContent());
    EXPECT_EQ(profile.GetString("s", "k", "default"), "default");
    EXPECT_THAT(tree.List(), IsEmpty());
}

TEST_F(KProfileFileTest, TheFirstPutMakesTheFile) {
    KProfile profile(Path());
    profile.PutString("s", "a", "1");
    EXPECT_EQ(Bytes(), "[s]\na=1\n");
    EXPECT_THAT(tree.List(), testing::SizeIs(1));
}

TEST_F(KProfileFileTest, TheFirstPutDoesNotMakeDirectories) {
    KProfile profile(Path("no/p.ini"));
    const KError error = ErrorOf([&] { profile.PutString("s", "a", "1"); });
    EXPECT_EQ(error.GetCode(), unsigned{ENOENT});
    EXPECT_EQ(error.GetInfo().GetString(), SystemInfo(Path("no/p.ini"), ENOENT));
    EXPECT_THAT(tree.List(), IsEmpty());
}

TEST_F(KProfileFileTest, ADirectoryIsNoProfile) {
    tree.Directory("d");
    EXPECT_EQ(CodeOfBinding("d"), unsigned{EISDIR});
    EXPECT_EQ(CodeOfOpen("d"), unsigned{EISDIR});
}

TEST_F(KProfileFileTest, AFifoIsNoProfileAndDoesNotHang) {
    tree.Fifo("queue");
    EXPECT_NE(CodeOfBinding("queue"), 0U);
    EXPECT_NE(CodeOfOpen("queue"), 0U);
}

TEST_F(KProfileFileTest, AnythingButAMissingFileIsAnErrorWhenBinding) {
    tree.Write("file", "x");
    tree.Link("circle", "circle");
    EXPECT_EQ(CodeOfBinding("file/below"), unsigned{ENOTDIR});
    EXPECT_EQ(CodeOfBinding("circle"), unsigned{ELOOP});
    EXPECT_EQ(CodeOfBinding(std::string(256, 'n')), unsigned{ENAMETOOLONG});
}

TEST_F(KProfileFileTest, AProfileWithoutPermissionIsAnError) {
    tree.Write("p.ini", "[s]\na=1\n", 0);
    unsigned binding = 0;
    unsigned open = 0;
    AsNobody([&] { binding = CodeOfBinding("p.ini"); });
    AsNobody([&] { open = CodeOfOpen("p.ini"); });
    EXPECT_EQ(binding, unsigned{EACCES});
    EXPECT_EQ(open, unsigned{EACCES});
}

TEST_F(KProfileFileTest, OpeningIsEnoughToPut) {
    GivenFile();
    KProfile profile;
    profile.Open(Path());
    profile.PutString("s", "a", "2");
    EXPECT_EQ(Bytes(), "[s]\na=2\n");
}

TEST_F(KProfileFileTest, CreatesANewFile) {
    const UmaskGuard mask(022);
    KProfile profile;
    profile.Create(Path());
    EXPECT_TRUE(profile.HasContent());
    EXPECT_THAT(tree.List(), ElementsAre(R"(f 0644 p.ini "")"));
    profile.PutString("s", "a", "1");
    EXPECT_EQ(Bytes(), "[s]\na=1\n");
}

TEST_F(KProfileFileTest, CreatingEmptiesAnExistingFileAndKeepsItsMode) {
    tree.Write("p.ini", "[s]\na=1\n", 0600);
    KProfile profile;
    profile.Create(Path());
    EXPECT_EQ(profile.GetString("s", "a", "gone"), "gone");
    EXPECT_THAT(tree.List(), ElementsAre(R"(f 0600 p.ini "")"));
}

TEST_F(KProfileFileTest, CreatingWhereItCannotBeIsAnErrorAndLeavesNoContent) {
    tree.Directory("d");
    GivenFile();
    KProfile profile(Path());
    EXPECT_EQ(CodeOf([&] { profile.Create(Path("no/p.ini")); }), unsigned{ENOENT});
    EXPECT_FALSE(profile.HasContent());
    EXPECT_NE(CodeOf([&] { profile.Create(Path("d")); }), 0U);
    EXPECT_TRUE(tree.Exists("d"));
}

// How a change reaches the file

TEST_F(KProfileFileTest, EveryChangeIsInTheFileWhenTheCallReturns) {
    GivenFile();
    KProfile profile(Path());
    profile.PutString("s", "a", "2");
    EXPECT_EQ(Bytes(), "[s]\na=2\n");
    profile.PutNumber<unsigned int>("s", "b", 3U, false);
    EXPECT_EQ(Bytes(), "[s]\na=2\nb=3\n");
    profile.DeleteKey("s", "a");
    EXPECT_EQ(Bytes(), "[s]\nb=3\n");
}

TEST_F(KProfileFileTest, AChangeIsANewFileInTheOldOnesPlace) {
    GivenFile();
    const auto former = tree.Status("p.ini").st_ino;
    const int reader = ::open(Path().c_str(), O_RDONLY | O_CLOEXEC);
    Put("p.ini", "a", "2");
    EXPECT_NE(tree.Status("p.ini").st_ino, former);
    char bytes[64] = {};
    EXPECT_GT(::read(reader, bytes, sizeof bytes - 1), 0);
    EXPECT_STREQ(bytes, "[s]\na=1\n") << "who reads meanwhile sees the whole former file";
    ::close(reader);
    EXPECT_THAT(tree.List(), testing::SizeIs(1)) << "nothing is left beside it";
}

TEST_F(KProfileFileTest, AReaderNeverSeesHalfAFile) {
    tree.Write("p.ini", "[s]\na=" + std::string(20000, '0') + "\nend=1\n");
    std::atomic<bool> ended{false};
    std::atomic<int> halves{0};
    std::thread reader([&] {
        while (!ended) {
            const std::string bytes = Bytes();
            halves += bytes.size() < 20000 || bytes.find("\nend=1\n") == std::string::npos ? 1 : 0;
        }
    });
    for (int step = 0; step < 50; ++step) {
        Put("p.ini", "a", std::string(20000, static_cast<char>('0' + step % 10)));
    }
    ended = true;
    reader.join();
    EXPECT_EQ(halves, 0);
}

TEST_F(KProfileFileTest, KeepsTheModeWhateverTheUmask) {
    const UmaskGuard mask(077);
    for (const mode_t mode : {0600U, 0644U, 0664U, 0755U}) {
        tree.Write("p.ini", "[s]\na=1\n", mode);
        Put("p.ini", "a", "2");
        EXPECT_EQ(tree.Mode("p.ini"), mode);
    }
}

TEST_F(KProfileFileTest, KeepsTheOwner) {
    SKIP_UNLESS_ROOT("give a file away");
    tree.Write("p.ini", "[s]\na=1\n", 0640);
    tree.SetOwner("p.ini", 1234, 2345);
    Put("p.ini", "a", "2");
    EXPECT_EQ(tree.Status("p.ini").st_uid, 1234U);
    EXPECT_EQ(tree.Status("p.ini").st_gid, 2345U);
    EXPECT_EQ(tree.Mode("p.ini"), 0640U);
}

TEST_F(KProfileFileTest, FollowsATrustedLinkToItsFile) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    tree.Write("real/p.ini", "[s]\na=1\n");
    tree.Link("p.ini", "real/p.ini");
    Put("p.ini", "a", "2");
    EXPECT_THAT(
        tree.List(),
        ElementsAre("l p.ini -> real/p.ini", "d 0755 real", R"(f 0644 real/p.ini "[s]\na=2\n")")
    );
}

TEST_F(KProfileFileTest, FollowsNoLinkThatAnotherMayHaveLaid) {
    tree.Write("real/p.ini", "[s]\na=1\n");
    tree.Directory("open", 0777);
    tree.Link("open/p.ini", "../real/p.ini");
    tree.Link("open/dir", "../real");
    KProfile file(Path("open/p.ini"));
    EXPECT_EQ(CodeOf([&] { file.PutString("s", "a", "2"); }), unsigned{ELOOP});
    KProfile directory(Path("open/dir/p.ini"));
    EXPECT_EQ(CodeOf([&] { directory.PutString("s", "a", "2"); }), unsigned{ELOOP});
    EXPECT_EQ(tree.Read("real/p.ini"), "[s]\na=1\n");
}

TEST_F(KProfileFileTest, WritesInPlaceWhereNoNewFileCanBeMade) {
    tree.Write("d/p.ini", "[s]\na=1\nb=a longer line\n");
    GiveToNobody(tree, "d/p.ini");
    GiveToNobody(tree, "d");
    tree.SetMode("d", 0555);
    AsNobody([&] { Put("d/p.ini", "b", "2"); });
    EXPECT_THAT(tree.List("d"), ElementsAre(R"(f 0644 p.ini "[s]\na=1\nb=2\n")"));
}

TEST_F(KProfileFileTest, AFileThatCannotBeWrittenIsAnErrorAndStaysAsItWas) {
    tree.Write("d/p.ini", "[s]\na=1\n", 0444);
    GiveToNobody(tree, "d");
    tree.SetMode("d", 0555);
    const KError error = ErrorOf([&] { AsNobody([&] { Put("d/p.ini", "a", "2"); }); });
    EXPECT_TRUE(error.GetCode() == EACCES || error.GetCode() == EPERM) << error.GetCode();
    EXPECT_THAT(error.GetInfo().GetString().c_str(), testing::HasSubstr(Path("d/p.ini")));
    EXPECT_THAT(tree.List("d"), ElementsAre(R"(f 0444 p.ini "[s]\na=1\n")"));
}

TEST_F(KProfileFileTest, AFullDiskIsAnErrorAndTheFileStaysAsItWas) {
    GivenFile();
    const int status = InChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{4096, 4096};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const std::string value(10000, 'v');
        return CodeOf([&] { Put("p.ini", "a", value); }) == EFBIG ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_THAT(tree.List(), ElementsAre(R"(f 0644 p.ini "[s]\na=1\n")"));
}

TEST_F(KProfileFileTest, AFullDiskLeavesAFileThatIsWrittenInPlaceAsItWas) {
    tree.Write("d/p.ini", "[s]\na=1\n");
    GiveToNobody(tree, "d/p.ini");
    GiveToNobody(tree, "d");
    tree.SetMode("d", 0555);
    const int status = InChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{4096, 4096};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        unsigned code = 0;
        AsNobody([&] { code = CodeOf([&] { Put("d/p.ini", "a", std::string(10000, 'v')); }); });
        return code == EFBIG ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_THAT(tree.List("d"), ElementsAre(R"(f 0644 p.ini "[s]\na=1\n")"));
}

TEST_F(KProfileFileTest, AFailedChangeIsNotInTheContentEither) {
    tree.Write("d/p.ini", "[s]\na=1\n", 0444);
    GiveToNobody(tree, "d");
    tree.SetMode("d", 0555);
    std::string value;
    AsNobody([&] {
        KProfile profile(Path("d/p.ini"));
        EXPECT_NE(CodeOf([&] { profile.PutString("s", "a", "2"); }), 0U);
        EXPECT_NE(CodeOf([&] { profile.DeleteKey("s", "a"); }), 0U);
        value = profile.GetString("s", "a", "gone").c_str();
    });
    EXPECT_EQ(value, "1");
}

TEST_F(KProfileFileTest, TheLongestNameIsReplacedToo) {
    const std::string name(255, 'n');
    tree.Write(name, "[s]\na=1\n");
    Put(name, "a", "2");
    EXPECT_THAT(tree.List(), ElementsAre("f 0644 " + name + R"( "[s]\na=2\n")"));
}

TEST_F(KProfileFileTest, StrangeNamesAreTakenByteForByte) {
    const std::string name = "line\nline\xff";
    Put(name, "a", "1");
    EXPECT_EQ(tree.Read(name), "[s]\na=1\n");
}

TEST_F(KProfileFileTest, LeavesNoDescriptor) {
    GivenFile();
    const std::vector<int> before = OpenDescriptors();
    {
        KProfile profile(Path());
        profile.PutString("s", "a", "2");
        EXPECT_NE(CodeOf([&] { profile.PutString("s", "a", "\n"); }), 0U);
        profile.DeleteKey("s", "a");
        KProfile created;
        created.Create(Path("q.ini"));
        EXPECT_NE(CodeOf([&] { created.Open(Path("missing")); }), 0U);
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

// Several at once

TEST_F(KProfileFileTest, ADeletionDoesNotBringBackAFileThatIsGone) {
    tree.Write("a.ini", "[s]\na=1\nb=2\nc=3\n");
    KProfile profile(tree.Path("a.ini"));
    profile.BeginKeyEnum("s", nullptr);
    ASSERT_TRUE(profile.EnumKey(nullptr, false));
    tree.Remove("a.ini");
    profile.DeleteKey("s", "a");
    EXPECT_FALSE(tree.Exists("a.ini"));
    EXPECT_EQ(profile.GetString("s", "a", "gone"), "gone");
    ASSERT_TRUE(profile.EnumKey(nullptr, false)) << "what was read is still enumerated";
    EXPECT_EQ(profile.GetKeyName(), "b");
    profile.PutString("s", "d", "4");
    EXPECT_EQ(tree.Read("a.ini"), "[s]\nd=4\n") << "a change that adds makes a new file";
}

TEST_F(KProfileFileTest, ChangesOfAnotherObjectAreKept) {
    GivenFile();
    KProfile one(Path());
    KProfile other(Path());
    other.PutString("s", "b", "2");
    one.PutString("s", "c", "3");
    other.DeleteKey("s", "a");
    EXPECT_EQ(Bytes(), "[s]\nb=2\nc=3\n");
}

TEST_F(KProfileFileTest, EditsMadeByHandAreKept) {
    GivenFile();
    KProfile profile(Path());
    tree.Write("p.ini", "; by hand\n[s]\na=5\n");
    profile.PutString("s", "b", "2");
    EXPECT_EQ(Bytes(), "; by hand\n[s]\na=5\nb=2\n");
}

TEST_F(KProfileFileTest, AFileThatIsGoneIsMadeAgain) {
    GivenFile();
    KProfile profile(Path());
    tree.Remove("p.ini");
    profile.PutString("s", "b", "2");
    EXPECT_THAT(Bytes(), testing::EndsWith("b=2\n"));
}

constexpr int putsOfEach = 40;

void PutMany(const std::string& path, const std::string& writer) {
    KProfile profile(path);
    for (int put = 0; put < putsOfEach; ++put) {
        profile.PutString("s", writer + std::to_string(put), "v");
    }
}

unsigned CountKeys(const std::string& path) {
    KProfile profile;
    profile.Open(path);
    profile.BeginKeyEnum("s", nullptr);
    unsigned count = 0;
    while (profile.EnumKey(nullptr, false)) {
        ++count;
    }
    return count;
}

TEST_F(KProfileFileTest, ProcessesThatPutAtOnceLoseNothing) {
    const HangGuard guard;
    std::vector<pid_t> children;
    for (const char* writer : {"a", "b", "c"}) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            PutMany(Path(), writer);
            ::_exit(0);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(CountKeys(Path()), 3U * putsOfEach);
    EXPECT_THAT(tree.List(), testing::SizeIs(1));
}

TEST_F(KProfileFileTest, ObjectsThatPutAtOnceLoseNothing) {
    const HangGuard guard;
    std::thread one([&] { PutMany(Path(), "a"); });
    std::thread other([&] { PutMany(Path(), "b"); });
    one.join();
    other.join();
    EXPECT_EQ(CountKeys(Path()), 2U * putsOfEach);
}

TEST_F(KProfileFileTest, CopiesAreUsedByThreadsAtOnce) {
    GivenFile();
    const KProfile original(Path());
    std::vector<std::thread> threads;
    for (const char* writer : {"b", "c"}) {
        threads.emplace_back([copy = original, writer]() mutable {
            for (int put = 0; put < 20; ++put) {
                copy.PutString("s", writer, std::to_string(put));
                copy.BeginKeyEnum("s", nullptr);
                EXPECT_TRUE(copy.EnumKey(nullptr, false));
                EXPECT_EQ(copy.GetString("s", "a", ""), "1");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(original.GetString("s", "b", ""), "19");
    EXPECT_EQ(original.GetString("s", "c", ""), "19");
}

// The command line before the file

class KProfileCommandLineTest : public KProfileFileTest {
  protected:
    ~KProfileCommandLineTest() override { RestoreCommandLine(); }
    static void Given(const char* option) {
        const char* arguments[] = {"program", option};
        EXPECT_EQ(SvcSetCommandLine(2, arguments), 0U);
    }
    unsigned Number(bool withContext) {
        tree.Write("p.ini", "[General]\nLogLevel=3\n");
        KProfile profile;
        profile.Open(Path());
        if (withContext) {
            profile.SetCommandLineContext("test");
        }
        return profile.GetNumber<unsigned int>("General", "LogLevel", 99U);
    }
};

TEST_F(KProfileCommandLineTest, AnswersBeforeTheFile) {
    Given("--General.LogLevel=7");
    EXPECT_EQ(Number(true), 7U);
}

TEST_F(KProfileCommandLineTest, IsNotAskedWithoutAContext) {
    Given("--General.LogLevel=7");
    EXPECT_EQ(Number(false), 3U);
}

TEST_F(KProfileCommandLineTest, LeavesTheFileToAnswerForOtherOptions) {
    Given("--General.Other=7");
    EXPECT_EQ(Number(true), 3U);
}

TEST_F(KProfileCommandLineTest, GivesTheDefaultWhereItIsNoNumber) {
    Given("--General.LogLevel=many");
    EXPECT_EQ(Number(true), 99U);
}

TEST_F(KProfileCommandLineTest, ReadsHexadecimalsByTheirPrefix) {
    Given("--General.LogLevel=0x10");
    EXPECT_EQ(Number(true), 16U);
}

TEST_F(KProfileCommandLineTest, IsNotAskedWithoutContent) {
    Given("--General.LogLevel=7");
    KProfile profile;
    profile.SetCommandLineContext("test");
    EXPECT_EQ(profile.GetNumber<unsigned int>("General", "LogLevel", 99U), 99U);
}

TEST_F(KProfileCommandLineTest, AnswersForKeysThatTheFileDoesNotHave) {
    Given("--General.New=8");
    tree.Write("p.ini", "");
    KProfile profile;
    profile.Open(Path());
    profile.SetCommandLineContext("test");
    EXPECT_EQ(profile.GetNumber<unsigned int>("General", "New", 99U), 8U);
    EXPECT_EQ(profile.GetString("General", "New", "default"), "default") << "numbers only";
}

} // namespace
} // namespace KTEST
