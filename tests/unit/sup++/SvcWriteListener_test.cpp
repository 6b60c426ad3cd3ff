// SPDX-License-Identifier: MIT
#include "../../faults/failcall.h"
#include "../../support/TemporaryTree.h"
#include "../../support/WriteRecorder.h"
#include "Common.h"

#include <sup++/KFile.h>
#include <sup++/KFileUtil.h>
#include <sup++/KLog.h>
#include <sup++/KProfile.h>
#include <sup++/SvcFile.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include <sys/files/FileCalls.h>
#include <unistd.h>

namespace KTEST {
namespace {

using KSUP::KFile;
using KSUP::KFileUtil;
using testing::ElementsAre;
using testing::IsEmpty;

class SvcWriteListenerTest : public testing::Test {
  protected:
    SvcWriteListenerTest() { EXPECT_EQ(SvcSetWriteListener(&WriteRecorder::Record, &written), 0U); }
    ~SvcWriteListenerTest() override { EXPECT_EQ(SvcSetWriteListener(nullptr, nullptr), 0U); }

    unsigned MakeDirectory(const std::string& relative) {
        return SvcCreateDirectory(0, tree.Path(relative).c_str(), 1);
    }
    unsigned DeleteFile(const std::string& relative) {
        return SvcDeleteFile(0, tree.Path(relative).c_str());
    }
    void Copy(const std::string& from, const std::string& to) {
        KFile source;
        KFile target;
        source.OpenForRead(tree.Path(from));
        target.Create(tree.Path(to));
        target.Copy(source, 0, static_cast<unsigned>(source.GetLength()));
        target.SetModeFlags(source.GetModeFlags());
        target.Close();
    }

    TemporaryTree tree;
    WriteRecorder written{tree.Path()};
};

// What is told

TEST_F(SvcWriteListenerTest, IsToldOfADirectoryAfterItsParents) {
    tree.Directory("there");
    EXPECT_EQ(MakeDirectory("there/a/b/c/"), 0U);
    EXPECT_THAT(
        written.Lines(),
        ElementsAre("directory there/a", "directory there/a/b", "directory there/a/b/c")
    );
}

TEST_F(SvcWriteListenerTest, IsToldOfADeletedDirectory) {
    tree.Directory("a");
    EXPECT_EQ(SvcDeleteDirectory(0, tree.Path("a//").c_str(), 0), 0U);
    EXPECT_THAT(written.Lines(), ElementsAre("directory deleted a"));
}

TEST_F(SvcWriteListenerTest, IsToldOfACopyAndItsMode) {
    tree.Write("source", "bytes", 0755);
    Copy("source", "target");
    EXPECT_THAT(written.Lines(), ElementsAre("file target", "mode target"));
}

TEST_F(SvcWriteListenerTest, IsToldOfACopyThatReplacesAFile) {
    tree.Write("source", "bytes", 0600);
    tree.Write("target", "former");
    Copy("source", "target");
    EXPECT_THAT(written.Lines(), ElementsAre("file target")) << "a new file has this mode already";
}

TEST_F(SvcWriteListenerTest, IsToldOfFilesAndLinksThatAreDeleted) {
    tree.Write("file", "x");
    tree.Link("link", "file");
    EXPECT_EQ(DeleteFile("link"), 0U);
    EXPECT_EQ(KFileUtil::DeleteFile(tree.Path("file")), 0U);
    EXPECT_THAT(written.Lines(), ElementsAre("file deleted link", "file deleted file"));
}

TEST_F(SvcWriteListenerTest, IsToldOfALinkAndOfOneThatIsReplaced) {
    KFileUtil::CreateSymbolicLink("x", tree.Path("link"));
    KFileUtil::CreateSymbolicLink("y", tree.Path("link"));
    EXPECT_THAT(written.Lines(), ElementsAre("link link", "link link"));
}

TEST_F(SvcWriteListenerTest, IsToldOfAChangedMode) {
    tree.Write("file", "x", 0644);
    KFileUtil::SetModeFlags(tree.Path("file"), 0600);
    EXPECT_THAT(written.Lines(), ElementsAre("mode file"));
}

TEST_F(SvcWriteListenerTest, IsToldOfProfiles) {
    KSUP::KProfile profile;
    profile.Create(tree.Path("p.ini"));
    profile.PutString("General", "Key", "value");
    profile.DeleteKey("General", "Key");
    EXPECT_THAT(written.Lines(), ElementsAre("file p.ini", "file p.ini", "file p.ini"));
}

TEST_F(SvcWriteListenerTest, IsToldThePathAsItWasGiven) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    tree.Directory("real");
    tree.Link("dir", "real");
    EXPECT_EQ(MakeDirectory("dir/.././dir//new"), 0U);
    EXPECT_THAT(written.Lines(), ElementsAre("directory dir/.././dir//new"));
}

// What is not

TEST_F(SvcWriteListenerTest, HearsNothingOfWhatIsAsItWasToBe) {
    tree.Write("file", "x", 0640);
    tree.Directory("a/b");
    EXPECT_EQ(MakeDirectory("a/b"), 0U);
    EXPECT_EQ(MakeDirectory("a"), 0U);
    EXPECT_EQ(DeleteFile("missing"), 0U);
    KFileUtil::SetModeFlags(tree.Path("file"), 0640);
    EXPECT_THAT(written.Lines(), IsEmpty());
}

TEST_F(SvcWriteListenerTest, HearsNothingOfWhatFailed) {
    tree.Write("file", "x");
    tree.Directory("full/a");
    KFile file;
    EXPECT_NE(MakeDirectory("file/a"), 0U);
    EXPECT_NE(MakeDirectory("file"), 0U);
    EXPECT_NE(SvcDeleteDirectory(0, tree.Path("full").c_str(), 0), 0U);
    EXPECT_NE(DeleteFile("full"), 0U);
    EXPECT_NE(CodeOf([&] { KFileUtil::CreateSymbolicLink("x", tree.Path("file")); }), 0U);
    EXPECT_NE(CodeOf([&] { KFileUtil::SetModeFlags(tree.Path("missing"), 0600); }), 0U);
    EXPECT_NE(CodeOf([&] { file.Create(tree.Path("full")); }), 0U);
    EXPECT_NE(CodeOf([&] { KSUP::KProfile().Create(tree.Path("full")); }), 0U);
    EXPECT_THAT(written.Lines(), IsEmpty());
}

TEST_F(SvcWriteListenerTest, IsToldWhatACallDidBeforeItFailed) {
    failcall_arm("mkdirat", 2, ENOSPC, 0);
    EXPECT_EQ(MakeDirectory("a/b"), unsigned{ENOSPC});
    failcall_disarm();
    EXPECT_THAT(written.Lines(), ElementsAre("directory a"));
}

TEST_F(SvcWriteListenerTest, IsToldOfAFormerFileThatIsGoneWithoutANewOne) {
    tree.Write("target", "former");
    KFile file;
    // The first attempt is made by openat2, so this is the one behind the deletion.
    failcall_arm("openat", 1, ENOSPC, 0);
    EXPECT_EQ(CodeOf([&] { file.Create(tree.Path("target")); }), unsigned{ENOSPC});
    failcall_disarm();
    EXPECT_FALSE(tree.Exists("target"));
    EXPECT_THAT(written.Lines(), ElementsAre("file deleted target"));
}

TEST_F(SvcWriteListenerTest, HearsNothingOfTheSetupLog) {
    KSUP::KLog log;
    log.Open(tree.Path("setup.log"));
    EXPECT_TRUE(tree.Exists("setup.log"));
    EXPECT_THAT(written.Lines(), IsEmpty());
}

TEST_F(SvcWriteListenerTest, HearsNothingOnceItIsEnded) {
    EXPECT_EQ(SvcSetWriteListener(nullptr, nullptr), 0U);
    EXPECT_EQ(MakeDirectory("a"), 0U);
    EXPECT_THAT(written.Lines(), IsEmpty());
}

TEST_F(SvcWriteListenerTest, HearsNothingOfAnotherCopyOfTheCalls) {
    EXPECT_EQ(KSYS::MakeDirectory(tree.Path("a").c_str(), 0755, false), 0U) << "this program's own";
    EXPECT_TRUE(tree.Exists("a"));
    EXPECT_THAT(written.Lines(), IsEmpty());
}

TEST_F(SvcWriteListenerTest, ALaterOneTakesItsPlace) {
    WriteRecorder later{tree.Path()};
    EXPECT_EQ(SvcSetWriteListener(&WriteRecorder::Record, &later), 0U);
    EXPECT_EQ(MakeDirectory("a"), 0U);
    EXPECT_EQ(SvcSetWriteListener(nullptr, nullptr), 0U);
    EXPECT_THAT(written.Lines(), IsEmpty());
    EXPECT_THAT(later.Lines(), ElementsAre("directory a"));
}

// Calls from within

/// A listener that looks at, and adds to, the very profile that was changed, and ends itself.
struct CuriousListener {
    static void Look(void* context, unsigned what, const char* path) noexcept {
        auto& self = *static_cast<CuriousListener*>(context);
        if (what == SvcWroteFile && self.calls++ == 0) {
            self.seen = self.profile->GetString("General", "Key", "");
            self.profile->PutString("General", "Seen", path);
            self.status = SvcSetWriteListener(nullptr, nullptr);
        }
    }

    KSUP::KProfile* profile;
    KSUP::KString seen;
    unsigned calls = 0;
    unsigned status = 1;
};

TEST_F(SvcWriteListenerTest, MayUseWhatWasChangedAndEndItself) {
    const HangGuard guard;
    KSUP::KProfile profile;
    profile.Create(tree.Path("p.ini"));
    CuriousListener listener{&profile, {}};
    EXPECT_EQ(SvcSetWriteListener(&CuriousListener::Look, &listener), 0U);
    profile.PutString("General", "Key", "value");
    EXPECT_EQ(std::string(listener.seen.c_str()), "value");
    EXPECT_EQ(listener.status, 0U);
    EXPECT_EQ(listener.calls, 2U) << "its own change is told too";
    EXPECT_EQ(tree.Read("p.ini"), "[General]\nKey=value\nSeen=" + tree.Path("p.ini") + "\n");
}

/// A listener that is still at work when it is ended.
struct SlowListener {
    static void Wait(void* context, unsigned, const char*) noexcept {
        auto& self = *static_cast<SlowListener*>(context);
        self.hasBegun = true;
        self.hasBegun.notify_all();
        ::usleep(100000);
        self.hasEnded = true;
    }

    std::atomic<bool> hasBegun{false};
    std::atomic<bool> hasEnded{false};
};

TEST_F(SvcWriteListenerTest, IsNotRunningAnyMoreOnceItIsEnded) {
    SlowListener listener;
    EXPECT_EQ(SvcSetWriteListener(&SlowListener::Wait, &listener), 0U);
    std::thread other([&] { EXPECT_EQ(MakeDirectory("a"), 0U); });
    listener.hasBegun.wait(false);
    EXPECT_EQ(SvcSetWriteListener(nullptr, nullptr), 0U);
    EXPECT_TRUE(listener.hasEnded);
    other.join();
}

} // namespace
} // namespace KTEST
