// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"
#include "../WriteRecording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/services/UnitFileChanges.h>

namespace KTEST {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class UnitFileReportTest : public testing::Test {
  protected:
    KSYS::UnitFileChange Change(const std::string& type, const std::string& relative) const {
        return {type, tree.Path(relative)};
    }

    TemporaryTree tree;
};

TEST_F(UnitFileReportTest, ADirectoryThatWasMadeStandsBeforeItsFirstLink) {
    tree.Directory("there.wants");
    const WriteRecording written(tree.Path());
    const KSYS::UnitFileReport report(tree.Path());
    report.Report(
        {Change("symlink", "there.wants/a.service"),
         Change("symlink", "new.wants/a.service"),
         Change("symlink", "new.wants/b.service"),
         Change("symlink", "alias.service")}
    );
    EXPECT_THAT(
        written.Lines(),
        ElementsAre(
            "link there.wants/a.service",
            "directory new.wants",
            "link new.wants/a.service",
            "link new.wants/b.service",
            "link alias.service"
        )
    );
}

TEST_F(UnitFileReportTest, ADirectoryThatIsGoneStandsBehindItsLastLink) {
    tree.Directory("kept.wants");
    tree.Directory("emptied.wants");
    const WriteRecording written(tree.Path());
    const KSYS::UnitFileReport report(tree.Path());
    tree.Remove("emptied.wants");
    report.Report(
        {Change("unlink", "emptied.wants/a.service"),
         Change("unlink", "emptied.wants/b.service"),
         Change("unlink", "kept.wants/a.service")}
    );
    EXPECT_THAT(
        written.Lines(),
        ElementsAre(
            "file deleted emptied.wants/a.service",
            "file deleted emptied.wants/b.service",
            "file deleted kept.wants/a.service",
            "directory deleted emptied.wants"
        )
    );
}

TEST_F(UnitFileReportTest, WhatIsNoChangeOfTheDiskIsNotTold) {
    const WriteRecording written(tree.Path());
    const KSYS::UnitFileReport report(tree.Path());
    report.Report({Change("masked", "a.service"), Change("dangling", "new.wants/b.service")});
    EXPECT_THAT(written.Lines(), IsEmpty());
}

} // namespace
} // namespace KTEST
