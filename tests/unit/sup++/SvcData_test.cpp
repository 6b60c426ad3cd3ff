// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/SvcData.h>

#include <array>
#include <cerrno>
#include <thread>

#include <sys/utsname.h>

namespace KTEST {
namespace {

// The global data record

TEST(SvcGlobalDataTest, TheNamesStandAtTheirOffsets) {
    const auto* bytes = reinterpret_cast<const char*>(SvcGetGlobalDataEx());
    ASSERT_NE(bytes, nullptr);
    EXPECT_STREQ(bytes + 672, "lin");
    EXPECT_STREQ(bytes + 676, SvcGetGlobalDataEx()->architecture);
    EXPECT_STREQ(bytes + 672, SvcGetGlobalDataEx()->os);
}

TEST(SvcGlobalDataTest, TheArchitectureIsThatOfTheSystem) {
    utsname system{};
    ASSERT_EQ(::uname(&system), 0);
    const std::string machine = static_cast<const char*>(system.machine);
    const std::string architecture = static_cast<const char*>(SvcGetGlobalDataEx()->architecture);
    if (machine == "x86_64") {
        EXPECT_EQ(architecture, "x86_64"); // also where this program is one of 32 bits
    } else if (machine.size() == 4 && machine[0] == 'i' && machine.substr(2) == "86") {
        EXPECT_EQ(architecture, "x86");
    } else {
        EXPECT_NE(architecture, "");
    }
}

TEST(SvcGlobalDataTest, TheRecordIsOne) {
    EXPECT_EQ(SvcGetGlobalDataEx(), SvcGetGlobalDataEx());
}

// The product data record

class SvcProductDataTest : public testing::Test {
  protected:
    ~SvcProductDataTest() override {
        // What is missing keeps its default: an empty profile is none at all.
        tree.Write("none.ini", "");
        EXPECT_EQ(Load("none.ini"), 0U);
    }
    unsigned Load(const std::string& relative) {
        return SvcLoadProductData(tree.Path(relative).c_str());
    }
    unsigned LoadText(const std::string& bytes) {
        tree.Write("product.ini", bytes);
        return Load("product.ini");
    }
    static std::string Text(std::uint32_t pointer) { return SvcGetProductText(pointer); }
    /// All fields on one line.
    static std::string Record() {
        const SvcProductData& data = *SvcGetOEMDataEx();
        return Text(data.product) + "|" + Text(data.serviceName) + "|" + Text(data.iniFile) + "|" +
               Text(data.version) + "|" + std::to_string(data.buildNumber);
    }

    TemporaryTree tree;
};

const std::string dps = "[product]\nname=Demo Product\nserviceName=dpsd\niniFile=dpsd.ini\n"
                        "version=2.1\nbuildNumber=4711\n";

TEST_F(SvcProductDataTest, HasDefaults) {
    EXPECT_EQ(Record(), "DPS|dps|dps.ini|0.0.0|0");
}

TEST_F(SvcProductDataTest, IsReadFromAProfile) {
    EXPECT_EQ(LoadText(dps), 0U);
    EXPECT_EQ(Record(), "Demo Product|dpsd|dpsd.ini|2.1|4711");
}

TEST_F(SvcProductDataTest, TheFieldsStandAtTheirOffsets) {
    EXPECT_EQ(LoadText(dps), 0U);
    const auto* bytes = reinterpret_cast<const unsigned char*>(SvcGetOEMDataEx());
    std::uint32_t number = 0;
    std::memcpy(&number, bytes, sizeof number);
    EXPECT_EQ(number, 4711U);
    std::uint32_t pointer = 0;
    std::memcpy(&pointer, bytes + 36, sizeof pointer);
    EXPECT_STREQ(reinterpret_cast<const char*>(std::uintptr_t{pointer}), "dpsd.ini");
}

TEST_F(SvcProductDataTest, WhatIsMissingKeepsItsDefault) {
    EXPECT_EQ(LoadText(dps), 0U);
    EXPECT_EQ(LoadText("[product]\nversion=3.0\n"), 0U);
    EXPECT_EQ(Record(), "DPS|dps|dps.ini|3.0|0");
    EXPECT_EQ(LoadText("[other]\nname=x\n"), 0U);
    EXPECT_EQ(Record(), "DPS|dps|dps.ini|0.0.0|0");
}

TEST_F(SvcProductDataTest, TheLargestBuildNumberIsTaken) {
    EXPECT_EQ(LoadText("[product]\nbuildNumber=4294967295\n"), 0U);
    EXPECT_EQ(SvcGetOEMDataEx()->buildNumber, 4294967295U);
}

TEST_F(SvcProductDataTest, FormerTextsStayReadable) {
    EXPECT_EQ(LoadText(dps), 0U);
    const char* former = SvcGetProductText(SvcGetOEMDataEx()->product);
    for (int load = 0; load < 50; ++load) {
        EXPECT_EQ(LoadText("[product]\nname=" + std::string(100, 'x') + "\n"), 0U);
    }
    EXPECT_STREQ(former, "Demo Product");
    EXPECT_EQ(Text(SvcGetOEMDataEx()->product), std::string(100, 'x'));
}

TEST_F(SvcProductDataTest, LongTextsAreTakenWhole) {
    const std::string name(20000, 'n');
    EXPECT_EQ(LoadText("[product]\nname=" + name + "\n"), 0U);
    EXPECT_EQ(Text(SvcGetOEMDataEx()->product), name);
}

struct BadProductRow {
    const char* name;
    std::string lines;

    friend void PrintTo(const BadProductRow& row, std::ostream* out) { *out << row.name; }
};

class SvcBadProductTest : public SvcProductDataTest,
                          public testing::WithParamInterface<BadProductRow> {};

TEST_P(SvcBadProductTest, IsRefusedAndLeavesTheRecordAsItWas) {
    EXPECT_EQ(LoadText(dps), 0U);
    EXPECT_EQ(LoadText("[product]\n" + GetParam().lines + "\nname=Other\nversion=9\n"), 36U);
    EXPECT_EQ(Record(), "Demo Product|dpsd|dpsd.ini|2.1|4711");
}

INSTANTIATE_TEST_SUITE_P(
    Products,
    SvcBadProductTest,
    testing::ValuesIn(std::vector<BadProductRow>{
        {"EmptyServiceName", "serviceName="},
        {"ServiceNameWithSeparator", "serviceName=a/b"},
        {"ServiceNameThatIsAPath", "serviceName=/etc"},
        {"ServiceNameOfADirectory", "serviceName=.."},
        {"ServiceNameWithControlCharacter", "serviceName=a\tb"},
        {"VersionWithControlCharacter", "version=1\x1b[0m"},
        {"EmptyIniFile", "iniFile="},
        {"IniFileWithSeparator", "iniFile=../x.ini"},
        {"BuildNumberOfLetters", "buildNumber=abc"},
        {"EmptyBuildNumber", "buildNumber="},
        {"BuildNumberTooLarge", "buildNumber=4294967296"},
    }),
    NameOfRow()
);

TEST_F(SvcProductDataTest, AFileThatCannotBeReadIsItsErrno) {
    EXPECT_EQ(LoadText(dps), 0U);
    EXPECT_EQ(Load("missing.ini"), unsigned{ENOENT});
    tree.Directory("d");
    EXPECT_EQ(Load("d"), unsigned{EISDIR});
    EXPECT_EQ(SvcLoadProductData(nullptr), 36U);
    EXPECT_EQ(Record(), "Demo Product|dpsd|dpsd.ini|2.1|4711");
}

// Custom keys

class SvcCustomKeyTest : public testing::Test {
  protected:
    static unsigned Get(const char* name, unsigned size, std::string& value) {
        std::array<char, 64> buffer{};
        buffer.fill('#');
        const unsigned status = SvcGetCustomKey(0, 0, name, size, buffer.data());
        value.assign(buffer.data(), buffer.size());
        return status;
    }
    static std::string Value(const char* name) {
        std::array<char, 64> buffer{};
        return SvcGetCustomKey(0, 0, name, buffer.size(), buffer.data()) == 0 ? buffer.data()
                                                                              : "(none)";
    }
};

TEST_F(SvcCustomKeyTest, IsWhatWasSetLast) {
    EXPECT_EQ(SvcSetCustomKey(0, 0, "data1", "2.1-4711"), 0U);
    EXPECT_EQ(Value("data1"), "2.1-4711");
    EXPECT_EQ(SvcSetCustomKey(0, 0, "data1", "2.2-4712"), 0U);
    EXPECT_EQ(Value("data1"), "2.2-4712");
}

TEST_F(SvcCustomKeyTest, AnEmptyValueIsAValue) {
    EXPECT_EQ(SvcSetCustomKey(0, 0, "data2", ""), 0U);
    EXPECT_EQ(Value("data2"), "");
}

TEST_F(SvcCustomKeyTest, ANullValueIsAnEmptyText) {
    EXPECT_EQ(SvcSetCustomKey(0, 0, "data7", "v"), 0U);
    EXPECT_EQ(SvcSetCustomKey(0, 0, "data7", nullptr), 0U);
    EXPECT_EQ(Value("data7"), "");
}

TEST_F(SvcCustomKeyTest, OneThatIsNotSetIsNotFound) {
    std::string buffer;
    EXPECT_EQ(Get("data3", 64, buffer), 64U);
    EXPECT_EQ(SvcSetCustomKey(0, 0, "data3x", "v"), 0U);
    EXPECT_EQ(Get("data3", 64, buffer), 64U);
    EXPECT_EQ(Get("Data3x", 64, buffer), 64U) << "names match exactly";
}

TEST_F(SvcCustomKeyTest, ABufferThatIsTooSmallStaysAsItWas) {
    EXPECT_EQ(SvcSetCustomKey(0, 0, "data4", "1234"), 0U);
    std::string buffer;
    EXPECT_EQ(Get("data4", 5, buffer), 0U);
    EXPECT_EQ(buffer.substr(0, 6), std::string("1234\0#", 6));
    for (const unsigned size : {4U, 1U, 0U}) {
        EXPECT_EQ(Get("data4", size, buffer), 36U);
        EXPECT_EQ(buffer, std::string(64, '#'));
    }
}

TEST_F(SvcCustomKeyTest, ArgumentsThatCannotBeAreRefused) {
    std::array<char, 8> buffer{};
    EXPECT_EQ(SvcSetCustomKey(1, 0, "data5", "v"), 36U);
    EXPECT_EQ(SvcSetCustomKey(0, 1, "data5", "v"), 36U);
    EXPECT_EQ(SvcSetCustomKey(0, 0, nullptr, "v"), 36U);
    EXPECT_EQ(SvcGetCustomKey(1, 0, "data5", 8, buffer.data()), 36U);
    EXPECT_EQ(SvcGetCustomKey(0, 1, "data5", 8, buffer.data()), 36U);
    EXPECT_EQ(SvcGetCustomKey(0, 0, nullptr, 8, buffer.data()), 36U);
    EXPECT_EQ(SvcGetCustomKey(0, 0, "data5", 8, nullptr), 36U);
    EXPECT_EQ(Value("data5"), "(none)");
}

TEST_F(SvcCustomKeyTest, IsSetAndReadByThreadsAtOnce) {
    EXPECT_EQ(SvcSetCustomKey(0, 0, "data6", "aaaaaaaaaaaaaaaaaaaa"), 0U);
    std::thread writer([] {
        for (int step = 0; step < 1000; ++step) {
            const std::string value(20, static_cast<char>('a' + step % 26));
            EXPECT_EQ(SvcSetCustomKey(0, 0, "data6", value.c_str()), 0U);
        }
    });
    for (int step = 0; step < 1000; ++step) {
        const std::string value = Value("data6");
        EXPECT_EQ(value, std::string(20, value[0]));
    }
    writer.join();
}

} // namespace
} // namespace KTEST
