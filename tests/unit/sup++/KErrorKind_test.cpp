// SPDX-License-Identifier: MIT
//
// What an error says of itself beside its code.
#include "../../support/NameOfRow.h"
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/KErrorSource.h>
#include <sup++/KFile.h>
#include <sup++/KFileUtil.h>
#include <sup++/KLog.h>
#include <sup++/KProfile.h>
#include <sup++/KUtil.h>

#include <cerrno>
#include <functional>

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KErrorKind;
using KSUP::KErrorSource;
using KSUP::KOperation;

constexpr KErrorSource source{"tests/KSample"};

KErrorKind KindOfCode(unsigned code) {
    return ErrorOf([&] { source.Raise(KSUP::TraceLevel::setup, code); }).GetKind();
}

TEST(KErrorKindTest, IsOwnUntilMoreIsSaid) {
    const KError error(48, ENOSPC, 0, 1, "f", "g", nullptr);
    EXPECT_EQ(error.GetKind(), KErrorKind::Own);
    EXPECT_EQ(error.GetOperation(), KOperation::None);
    EXPECT_FALSE(error.IsSystemError());
    EXPECT_EQ(error.GetPath(), "");
    EXPECT_EQ(error.GetReason(), "");
}

TEST(KErrorKindTest, IsTakenFromACodeThatIsOursAlone) {
    EXPECT_EQ(KindOfCode(KSUP::ErrorCode::malformedRule), KErrorKind::Rule);
    EXPECT_EQ(KindOfCode(KSUP::ErrorCode::cancelled), KErrorKind::Cancelled);
    EXPECT_EQ(KindOfCode(KSUP::ErrorCode::processFailed), KErrorKind::Process);
    EXPECT_EQ(KindOfCode(KSUP::ErrorCode::serviceUnknown), KErrorKind::Service);
    EXPECT_EQ(KindOfCode(KSUP::ErrorCode::serviceManagerLost), KErrorKind::Service);
    EXPECT_EQ(KindOfCode(KSUP::ErrorCode::numberConversion), KErrorKind::Own);
    EXPECT_EQ(KindOfCode(KSUP::ErrorCode::invalidArgument), KErrorKind::Own);
}

TEST(KErrorKindTest, TellsASystemsErrorFromAnOwnOneOfTheSameNumber) {
    static_assert(KSUP::ErrorCode::invalidArgument == ENAMETOOLONG);
    const KError error =
        ErrorOf([] { source.RaiseSystem(ENAMETOOLONG, KOperation::Write, "/opt/x"); });
    EXPECT_TRUE(error.IsSystemError());
    EXPECT_EQ(error.GetOperation(), KOperation::Write);
    EXPECT_EQ(error.GetPath(), "/opt/x");
    EXPECT_EQ(error.GetReason(), "File name too long");
    EXPECT_EQ(error.GetSubCode(), 0U);
}

TEST(KErrorKindTest, ACopyKeepsItsOwnDetail) {
    KError original = ErrorOf([] { source.RaiseSystem(EIO, "/x"); });
    const KError copy(original);
    original.SetDetail({KErrorKind::Service, KOperation::None, {}, "refused"});
    EXPECT_EQ(copy.GetKind(), KErrorKind::System);
    EXPECT_EQ(original.GetReason(), "refused");
    EXPECT_EQ(original.GetInfo().GetString(), copy.GetInfo().GetString());
}

struct Row {
    const char* name;
    std::function<void(const TemporaryTree&)> call;
    unsigned code;
    KOperation operation;
    const char* path; // below the tree
};

class KErrorOfCallTest : public testing::TestWithParam<Row> {};

TEST_P(KErrorOfCallTest, IsTheSystemsWithPathAndOperation) {
    TemporaryTree tree;
    tree.Directory("directory");
    const KError error = ErrorOf([&] { GetParam().call(tree); });
    EXPECT_EQ(error.GetKind(), KErrorKind::System);
    EXPECT_EQ(error.GetCode(), GetParam().code);
    EXPECT_EQ(error.GetOperation(), GetParam().operation);
    EXPECT_EQ(error.GetPath(), tree.Path(GetParam().path));
    EXPECT_EQ(error.GetInfo().GetString(), error.GetPath() + ": " + error.GetReason());
}

INSTANTIATE_TEST_SUITE_P(
    Calls,
    KErrorOfCallTest,
    testing::Values(
        Row{"ReadingWhatIsMissing",
            [](const TemporaryTree& tree) { KSUP::KFile().OpenForRead(tree.Path("none")); },
            ENOENT,
            KOperation::Read,
            "none"},
        Row{"ReadingADirectory",
            [](const TemporaryTree& tree) { KSUP::KFile().OpenForRead(tree.Path("directory")); },
            EISDIR,
            KOperation::Read,
            "directory"},
        Row{"MakingAFileInNoDirectory",
            [](const TemporaryTree& tree) { KSUP::KFile().Create(tree.Path("none/file")); },
            ENOENT,
            KOperation::Write,
            "none/file"},
        Row{"DeletingADirectoryAsAFile",
            [](const TemporaryTree& tree) { KSUP::KFile::DeleteFile(tree.Path("directory")); },
            EISDIR,
            KOperation::Delete,
            "directory"},
        Row{"LayingALinkInNoDirectory",
            [](const TemporaryTree& tree) {
                KSUP::KFileUtil::CreateSymbolicLink("/x", tree.Path("none/link"));
            },
            ENOENT,
            KOperation::Write,
            "none/link"},
        Row{"OpeningAMissingProfile",
            [](const TemporaryTree& tree) { KSUP::KProfile().Open(tree.Path("none.ini")); },
            ENOENT,
            KOperation::Read,
            "none.ini"},
        Row{"PuttingIntoNoDirectory",
            [](const TemporaryTree& tree) {
                KSUP::KProfile(tree.Path("none/a.ini")).PutString("S", "k", "v");
            },
            ENOENT,
            KOperation::Write,
            "none/a.ini"},
        Row{"OpeningALogInNoDirectory",
            [](const TemporaryTree& tree) { KSUP::KLog().Open(tree.Path("none/log")); },
            ENOENT,
            KOperation::Write,
            "none/log"}
    ),
    NameOfRow()
);

} // namespace
} // namespace KTEST
