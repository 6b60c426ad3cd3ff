// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/processes/OwnProcess.h>

namespace {

using KSYS::WithoutLoader;
using ::testing::ElementsAre;

TEST(WithoutLoaderTest, ACommandLineIsTheProgramsOwn) {
    EXPECT_THAT(
        WithoutLoader(
            {"/x/ld.so",
             "--inhibit-cache",
             "--library-path",
             "--a",
             "--argv0",
             "./it.run",
             "/x/it",
             "--library-path",
             "b"}
        ),
        ElementsAre("./it.run", "--library-path", "b")
    );
    EXPECT_THAT(WithoutLoader({"/x/ld.so", "/x/it", "a"}), ElementsAre("/x/it", "a"));
}

TEST(WithoutLoaderTest, ALoaderWithoutAProgramIsLeftAlone) {
    EXPECT_THAT(WithoutLoader({"/x/ld.so", "--argv0"}), ElementsAre("/x/ld.so", "--argv0"));
    EXPECT_THAT(WithoutLoader({"/x/ld.so", "--verify"}), ElementsAre("/x/ld.so", "--verify"));
    EXPECT_THAT(WithoutLoader({}), ElementsAre());
}

} // namespace
