// SPDX-License-Identifier: MIT
#include <setup/output/ProductTable.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using KSETUP::KListedProduct;
using KSETUP::StateOf;

TEST(ProductTableTest, ColumnsAreAsWideAsTheirWidestText) {
    KListedProduct first;
    first.name = "dps";
    first.product = "Gr\u00fc\u00dfe";
    first.version = "2.2";
    first.buildNumber = 41;
    first.path = "/opt/dps";
    KListedProduct second;
    second.name = "another";
    second.product = "Another\033";
    second.version = "1";
    std::istringstream lines(KSETUP::ToTable({first, second}));
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line.substr(0, 44), "NAME     PRODUCT   VERSION         PATH     ");
    std::getline(lines, line);
    EXPECT_EQ(line.substr(0, 46), "dps      Gr\u00fc\u00dfe     2.2 (build 41)  /opt/dps ");
    std::getline(lines, line);
    EXPECT_EQ(line.substr(0, 44), "another  Another?  1               -        ");
}

TEST(ProductTableTest, WhatIsWiderThanTheTerminalHasALineForEachField) {
    KListedProduct first;
    first.name = "dps";
    first.product = "DPS";
    first.path = "/opt/dps";
    KListedProduct second = first;
    second.name = "another";
    const std::string table = KSETUP::ToTable({first, second});
    const std::size_t widest = table.size() - 1 - table.rfind('\n', table.size() - 2) - 1;
    EXPECT_EQ(KSETUP::ToTable({first, second}, widest), table);
    EXPECT_THAT(
        KSETUP::ToTable({first, second}, widest - 1),
        ::testing::MatchesRegex(
            "NAME      dps\nPRODUCT   DPS\nVERSION   -\nPATH      /opt/dps\n"
            "LAST RUN  [-0-9: ]*\nSTATE     removed\n\nNAME      another\n(.|\n)*"
        )
    );
}

TEST(ProductTableTest, TheStateIsTheMostUrgentThing) {
    KListedProduct product;
    EXPECT_EQ(StateOf(product), "removed");
    product.trouble = "something could not be read";
    EXPECT_EQ(StateOf(product), "unknown");
    product.hasConfigurationLeft = true;
    EXPECT_EQ(StateOf(product), "removed, configuration left");
    product.isInstalled = true;
    EXPECT_EQ(StateOf(product), "unknown");
    product.differs = false;
    EXPECT_EQ(StateOf(product), "as installed");
    product.differs = true;
    EXPECT_EQ(StateOf(product), "differs");
    product.isInterrupted = true;
    EXPECT_EQ(StateOf(product), "interrupted");
    product.isRunning = true;
    EXPECT_EQ(StateOf(product), "a run goes on");
}

} // namespace
